#include "router/NatPmpServer.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include "platform/linux/nat/codec/NatPmpCodec.h"
#include "platform/linux/nat/codec/PcpCodec.h"
#include "tests/support/Socket.h"

namespace zelvo::test {

using namespace router;
using namespace platform;
using namespace std::chrono_literals;

namespace {

constexpr std::uint32_t Loopback = 0x7f000001;

class NatPmpServerTest : public testing::Test {
  protected:
    NatPmpResponse ask(NatPmpOpcode opcode, std::uint16_t internal, std::uint16_t wish,
                       std::uint32_t lifetime) {
        const auto response = decodeNatPmpResponse(
            natPmp.answer(encode(NatPmpRequest{opcode, internal, wish, lifetime}), Loopback, now));
        return response.value_or(NatPmpResponse{});
    }
    /// Turns the loop until nothing happens for a moment.
    void settle() {
        for (int turn = 0; turn < 20; ++turn) {
            loop.turn(Clock::now() + 5ms);
        }
    }

    /// Maps the port of the server and connects a viewer through it.
    void connect() {
        external = ask(NatPmpOpcode::MapTcp, internal, 0, 60).externalPort;
        viewer = openConnection({Loopback, external});
        settle();
        accepted = FileDescriptor(accept4(server.get(), nullptr, nullptr, SOCK_NONBLOCK));
        ASSERT_TRUE(accepted);
    }
    static std::string receive(const FileDescriptor& socket) {
        std::string buffer(1 << 20, 0);
        const ssize_t size = recv(socket.get(), buffer.data(), buffer.size(), 0);
        return size < 0 ? "nothing" : buffer.substr(0, static_cast<std::size_t>(size));
    }

    EventLoop loop;
    std::vector<std::string> lines;
    MappingTable table{loop, Loopback, [this](const auto& line) { lines.push_back(line); }};
    Clock::time_point now = Clock::now();
    NatPmpServer natPmp{table, now};
    FileDescriptor server = openListener({Loopback, 0});
    std::uint16_t internal = localEndpoint(server).port;
    std::uint16_t external = 0;
    FileDescriptor viewer;
    FileDescriptor accepted;
};

}  // namespace

TEST_F(NatPmpServerTest, RelaysBothWaysUntilBothHaveEnded) {
    connect();
    // A slow receiver stops the sender, and loses nothing.
    const std::string block(65536, 'x');
    std::size_t sent = 0;
    for (ssize_t size = 0; sent < 2000 * block.size() && size >= 0;) {
        size = send(viewer.get(), block.data(), block.size(), 0);
        if (size < 0) {
            settle();
            size = send(viewer.get(), block.data(), 1, 0);
        }
        sent += size > 0 ? static_cast<std::size_t>(size) : 0;
        loop.turn(Clock::now());
    }
    EXPECT_LT(sent, 2000 * block.size()) << "the relay takes no more than it can pass on";
    shutdown(viewer.get(), SHUT_WR);
    std::size_t received = 0;
    std::string part = "nothing";
    for (int turn = 0; turn < 2000 && !part.empty(); ++turn) {
        loop.turn(Clock::now() + 5ms);
        part = receive(accepted);
        received += part == "nothing" ? 0 : part.size();
    }
    EXPECT_EQ(received, sent);
    EXPECT_EQ(part, "") << "its end is passed on";

    send(accepted.get(), "answers", 7, 0);
    settle();
    EXPECT_EQ(receive(viewer), "answers") << "the other direction lives on";
    EXPECT_NE(table.text(now).find("connections: 1"), std::string::npos);
    shutdown(accepted.get(), SHUT_WR);
    settle();
    EXPECT_EQ(receive(viewer), "");
    EXPECT_NE(table.text(now).find("connections: 0"), std::string::npos);
}

TEST_F(NatPmpServerTest, DeletionAndExpiryEndPortAndConnections) {
    connect();
    EXPECT_EQ(ask(NatPmpOpcode::MapTcp, internal, 0, 0).externalPort, 0);
    EXPECT_EQ(receive(viewer), "");
    EXPECT_FALSE(test::Socket().connect(external));

    EXPECT_EQ(ask(NatPmpOpcode::MapTcp, internal, external, 60).externalPort, external);
    now += 40s;
    EXPECT_EQ(ask(NatPmpOpcode::MapTcp, internal, 1, 60).externalPort, external);
    EXPECT_EQ(table.nextExpiry(), now + 60s);
    table.expire(now + 59s);
    EXPECT_TRUE(test::Socket().connect(external));
    table.expire(now + 60s);
    EXPECT_FALSE(test::Socket().connect(external));
    EXPECT_EQ(table.text(now), "Mappings: 0");

    const std::string way =
        "TCP 127.0.0.1:" + std::to_string(external) + " -> 127.0.0.1:" + std::to_string(internal);
    EXPECT_EQ(lines, (std::vector<std::string>{"Mapped " + way + " for 60 s", "Deleted " + way,
                                               "Mapped " + way + " for 60 s",
                                               "Renewed " + way + " for 60 s", "Expired " + way}));
}

TEST_F(NatPmpServerTest, GrantsAnotherPortForOneThatCannotBeHad) {
    const auto udp = ask(NatPmpOpcode::MapUdp, internal, 80, 60);
    EXPECT_GE(udp.externalPort, 1024) << "privileged";
    const auto taken = ask(NatPmpOpcode::MapTcp, internal, internal, 60);
    EXPECT_NE(taken.externalPort, internal) << "somebody listens there";
    EXPECT_NE(taken.externalPort, 0);
    EXPECT_EQ(ask(NatPmpOpcode::MapTcp, taken.externalPort, 0, 60).result, NatPmpOutOfResources)
        << "it would forward to itself";
    std::uint16_t port = 20000;
    while (ask(NatPmpOpcode::MapUdp, port, 0, 60).result == NatPmpSuccess && port < 21000) {
        ++port;
    }
    EXPECT_NE(table.text(now).find("Mappings: 100\n"), std::string::npos) << "the table is full";
    EXPECT_EQ(ask(NatPmpOpcode::MapUdp, internal, 0, 60).externalPort, udp.externalPort);
}

TEST_F(NatPmpServerTest, RefusesConnectionsThatThereIsNoDescriptorFor) {
    const auto granted = ask(NatPmpOpcode::MapTcp, internal, 0, 60);
    const auto viewer = openConnection({Loopback, granted.externalPort});
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{static_cast<rlim_t>(viewer.get()) + 1, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    settle();
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(receive(viewer), "") << "and does not leave it waiting, which would turn the loop";

    const auto second = openConnection({Loopback, granted.externalPort});
    settle();
    EXPECT_EQ(receive(second), "nothing");
    EXPECT_NE(table.text(now).find("connections: 1"), std::string::npos);
}

TEST_F(NatPmpServerTest, AnswersOnlyWhatIsARequest) {
    EXPECT_TRUE(natPmp.answer(Bytes{}, Loopback, now).empty());
    EXPECT_TRUE(natPmp.answer(Bytes{0, 130, 0, 0}, Loopback, now).empty()) << "a response";
    EXPECT_TRUE(natPmp.answer(Bytes{0, 1, 0, 0}, Loopback, now).empty()) << "cut";
    EXPECT_TRUE(isVersionRefusal(natPmp.answer(Bytes(60, 2), Loopback, now), PcpVersion));
    EXPECT_EQ(ask(NatPmpOpcode::ExternalAddress, 0, 0, 0).externalAddress, Loopback);
    EXPECT_EQ(table.text(now), "Mappings: 0");
}

}  // namespace zelvo::test
