#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>

#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

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
    }
    void TearDown() override {
        client.reset();
        daemon.reset();
        if (up) {
            output(lab("down"));
        }
    }

    std::string lab(const std::string& action) const {
        return ZELVO_NAMESPACES " " + action + " " + prefix;
    }
    void startDaemon() {
        daemon = std::make_unique<ChildProcess>("exec " + lab("daemon") + " http_port=5000");
        EXPECT_TRUE(wait([this] {
            const auto sockets = output("ip netns exec " + prefix + "-router ss -lnutH");
            return sockets.find(":5351") != std::string::npos &&
                   sockets.find(":5000") != std::string::npos;
        }));
    }
    /// Maps a port of the host, and waits until the router forwards it.
    void startClient(const std::string& external) {
        client = std::make_unique<ChildProcess>("exec ip netns exec " + prefix + "-host " +
                                                ZELVO_MAP_PORT + " 5900 " + external + " " +
                                                GetParam() + " " + state.path());
        const std::string line = client->readLine();
        EXPECT_TRUE(line.starts_with("Mapped 44.128.7.1:" + external + " after ")) << line;
        EXPECT_TRUE(forwards("dport " + external + " dnat ip to 192.168.77.20:5900"));
    }
    /// Both transports.
    bool forwards(const std::string& rule) const {
        return wait([&] { return count(rules(), rule) == 2; });
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
    TemporaryFolder state;
    std::unique_ptr<ChildProcess> daemon;
    std::unique_ptr<ChildProcess> client;
};

}  // namespace

TEST_P(RealRouterTest, MappingSurvivesChangesAndLeavesNothingBehind) {
    startClient("23456");
    // The router loses its rules.
    daemon.reset();
    for (const char* chain : {"miniupnpd", "prerouting_miniupnpd", "postrouting_miniupnpd"}) {
        output("ip netns exec " + prefix + "-router nft flush chain inet filter " + chain);
    }
    ASSERT_EQ(rules(), "");
    startDaemon();
    EXPECT_TRUE(forwards("dport 23456")) << rules();

    // The host gets another address.
    const std::string ip = "ip -n " + prefix + "-host ";
    output(ip + "addr add 192.168.77.21/24 dev eth0");
    output(ip + "route replace default via 192.168.77.1 src 192.168.77.21");
    output(ip + "addr del 192.168.77.20/24 dev eth0");
    output(ip + "addr replace 192.168.77.21/24 dev eth0");
    output(ip + "route replace default via 192.168.77.1");
    EXPECT_TRUE(forwards("dnat ip to 192.168.77.21:5900")) << rules();
    EXPECT_EQ(client->end(), 0);
}

TEST_P(RealRouterTest, NextStartWithdrawsWhatACrashLeft) {
    startClient("23456");
    client.reset();
    EXPECT_EQ(count(rules(), "23456"), 2u);
    startClient("30000");
    EXPECT_TRUE(wait([this] { return count(rules(), "dport 23456") == 0; })) << rules();
    EXPECT_EQ(client->end(), 0);
    EXPECT_EQ(rules(), "");
    EXPECT_TRUE(std::filesystem::is_empty(state.path()));
}

INSTANTIATE_TEST_SUITE_P(Protocols, RealRouterTest, testing::Values("pcp", "nat-pmp", "upnp"),
                         [](const auto& info) {
                             return info.param == "nat-pmp" ? "natpmp" : info.param;
                         });

}  // namespace zelvo::test
