#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "tests/nat/ChildProcess.h"

namespace zelvo::test {

using namespace std::chrono_literals;

namespace {

std::string output(const std::string& command) {
    std::string text;
    if (FILE* pipe = popen((command + " 2>&1").c_str(), "r")) {
        for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) {
            text += static_cast<char>(c);
        }
        pclose(pipe);
    }
    return text;
}

std::size_t count(const std::string& text, const std::string& part) {
    std::size_t found = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++found;
    }
    return found;
}

/// A host and a router in network namespaces of their own, the router running miniupnpd. Needs
/// root.
class RealRouterTest : public testing::TestWithParam<std::string> {
  protected:
    void SetUp() override {
        if (geteuid() != 0 ||
            output("command -v miniupnpd && command -v nft").find("nft") == std::string::npos) {
            GTEST_SKIP() << "needs root, miniupnpd and nftables";
        }
        const std::string trouble = output(lab("up"));
        if (!trouble.empty()) {
            GTEST_SKIP() << "needs network namespaces: " << trouble;
        }
        up = true;
        startDaemon();
        output(lab("only") + " " + GetParam());
        state = std::filesystem::temp_directory_path() / prefix;
    }
    void TearDown() override {
        client.reset();
        daemon.reset();
        if (up) {
            output(lab("down"));
            std::filesystem::remove_all(state);
        }
    }

    std::string lab(const std::string& action) const {
        return ZELVO_NAMESPACES " " + action + " " + prefix;
    }
    void startDaemon() {
        daemon = std::make_unique<ChildProcess>(
            std::vector<std::string>{ZELVO_NAMESPACES, "daemon", prefix, "http_port=5000"});
        EXPECT_TRUE(wait([this] {
            const auto sockets = output("ip netns exec " + prefix + "-router ss -lnutH");
            return sockets.find(":5351") != std::string::npos &&
                   sockets.find(":5000") != std::string::npos;
        }));
    }
    void loseRules() {
        daemon.reset();
        for (const char* chain : {"miniupnpd", "prerouting_miniupnpd", "postrouting_miniupnpd"}) {
            output("ip netns exec " + prefix + "-router nft flush chain inet filter " + chain);
        }
    }
    void startClient(const std::string& internal, const std::string& external) {
        client = std::make_unique<ChildProcess>(
            std::vector<std::string>{"ip", "netns", "exec", prefix + "-host", ZELVO_MAP_PORT,
                                     internal, external, GetParam(), state.string()});
    }
    std::string rules() const { return output(lab("rules")); }

    /// Looks every 20 ms: what is waited for happens in other processes.
    static bool wait(const std::function<bool()>& condition, std::chrono::seconds limit = 10s) {
        const auto end = std::chrono::steady_clock::now() + limit;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            std::this_thread::sleep_for(20ms);
        }
        return true;
    }

    bool up = false;
    std::string prefix = "zn" + std::to_string(getpid());
    std::filesystem::path state;
    std::unique_ptr<ChildProcess> daemon;
    std::unique_ptr<ChildProcess> client;
};

}  // namespace

TEST_P(RealRouterTest, MapsBothTransportsAndLeavesNothingBehind) {
    startClient("5900", "23456");
    const std::string line = client->readLine();
    EXPECT_EQ(line.rfind("Mapped 44.128.7.1:23456 after ", 0), 0u) << line;
    EXPECT_TRUE(wait([this] {
        return count(rules(), "dport 23456 dnat ip to 192.168.77.20:5900") == 2;
    })) << rules();
    EXPECT_EQ(client->terminate(), 0);
    EXPECT_EQ(rules(), "");
    EXPECT_TRUE(std::filesystem::is_empty(state));
}

TEST_P(RealRouterTest, NextStartWithdrawsWhatACrashLeft) {
    startClient("5900", "23456");
    ASSERT_NE(client->readLine(), "");
    ASSERT_TRUE(wait([this] { return count(rules(), "23456") == 2; }));
    client.reset();
    EXPECT_EQ(count(rules(), "23456"), 2u);
    startClient("5900", "30000");
    ASSERT_NE(client->readLine(), "");
    EXPECT_TRUE(wait([this] {
        return count(rules(), "dport 23456") == 0 && count(rules(), "dport 30000") == 2;
    })) << rules();
    EXPECT_EQ(client->terminate(), 0);
    EXPECT_EQ(rules(), "");
}

TEST_P(RealRouterTest, MappingComesBackAfterTheRouterHasLostIt) {
    startClient("5900", "23456");
    ASSERT_NE(client->readLine(), "");
    ASSERT_TRUE(wait([this] { return count(rules(), "23456") == 2; }));
    loseRules();
    ASSERT_EQ(rules(), "");
    startDaemon();
    EXPECT_TRUE(wait([this] { return count(rules(), "dport 23456") == 2; })) << rules();
    EXPECT_EQ(client->terminate(), 0);
    EXPECT_EQ(rules(), "");
}

TEST_P(RealRouterTest, MappingFollowsTheHostsAddress) {
    startClient("5900", "23456");
    ASSERT_NE(client->readLine(), "");
    const std::string ip = "ip -n " + prefix + "-host ";
    output(ip + "addr add 192.168.77.21/24 dev eth0");
    output(ip + "route replace default via 192.168.77.1 src 192.168.77.21");
    output(ip + "addr del 192.168.77.20/24 dev eth0");
    output(ip + "addr replace 192.168.77.21/24 dev eth0");
    output(ip + "route replace default via 192.168.77.1");
    EXPECT_TRUE(wait([this] { return count(rules(), "dnat ip to 192.168.77.21:5900") == 2; }))
        << rules();
    EXPECT_EQ(client->terminate(), 0);
}

INSTANTIATE_TEST_SUITE_P(Protocols, RealRouterTest, testing::Values("pcp", "nat-pmp", "upnp"),
                         [](const auto& info) {
                             return info.param == "nat-pmp" ? "natpmp" : info.param;
                         });

}  // namespace zelvo::test
