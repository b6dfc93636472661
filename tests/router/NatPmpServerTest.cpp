#include "router/NatPmpServer.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include "platform/linux/nat/codec/NatPmpCodec.h"
#include "platform/linux/nat/codec/PcpCodec.h"

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

    EventLoop loop;
    std::vector<std::string> lines;
    MappingTable table{loop, Loopback, [this](const auto& line) { lines.push_back(line); }};
    Clock::time_point now = Clock::now();
    NatPmpServer natPmp{table, now};
    platform::FileDescriptor server = openListener({Loopback, 0});
    std::uint16_t internal = localEndpoint(server).port;
};

std::string receive(const platform::FileDescriptor& socket) {
    char buffer[64];
    const ssize_t size = recv(socket.get(), buffer, sizeof buffer, 0);
    return size < 0 ? "nothing" : std::string(buffer, static_cast<std::size_t>(size));
}

}  // namespace

TEST_F(NatPmpServerTest, RelaysBothWaysUntilBothHaveEnded) {
    const auto granted = ask(NatPmpOpcode::MapTcp, internal, 0, 60);
    const platform::FileDescriptor viewer = openConnection({Loopback, granted.externalPort});
    settle();
    const platform::FileDescriptor accepted(accept4(server.get(), nullptr, nullptr, SOCK_NONBLOCK));
    ASSERT_TRUE(accepted);
    send(viewer.get(), "asks", 4, 0);
    shutdown(viewer.get(), SHUT_WR);
    settle();
    EXPECT_EQ(receive(accepted), "asks");
    EXPECT_EQ(receive(accepted), "") << "its end is passed on";
    send(accepted.get(), "answers", 7, 0);
    settle();
    EXPECT_EQ(receive(viewer), "answers") << "the other direction lives on";
    EXPECT_NE(table.text(now).find("connections: 1"), std::string::npos);
    shutdown(accepted.get(), SHUT_WR);
    settle();
    EXPECT_EQ(receive(viewer), "");
    EXPECT_NE(table.text(now).find("connections: 0"), std::string::npos);
}

TEST_F(NatPmpServerTest, SlowReceiverStopsTheSender) {
    const auto granted = ask(NatPmpOpcode::MapTcp, internal, 0, 60);
    const platform::FileDescriptor viewer = openConnection({Loopback, granted.externalPort});
    settle();
    const platform::FileDescriptor accepted(accept4(server.get(), nullptr, nullptr, SOCK_NONBLOCK));
    const std::string block(65536, 'x');
    std::size_t sent = 0;
    for (int round = 0; round < 2000; ++round) {
        const ssize_t size = send(viewer.get(), block.data(), block.size(), 0);
        if (size < 0) {
            settle();
            if (send(viewer.get(), block.data(), 1, 0) < 0) {
                break;
            }
            sent += 1;
        } else {
            sent += static_cast<std::size_t>(size);
        }
        loop.turn(Clock::now());
    }
    EXPECT_LT(sent, 2000 * block.size()) << "the relay takes no more than it can pass on";
    std::string buffer(1 << 20, 0);
    std::size_t received = 0;
    for (int quiet = 0; quiet < 50 && received < sent;) {
        const ssize_t size = recv(accepted.get(), buffer.data(), buffer.size(), 0);
        received += size > 0 ? static_cast<std::size_t>(size) : 0;
        quiet = size > 0 ? 0 : quiet + 1;
        loop.turn(Clock::now() + 5ms);
    }
    EXPECT_EQ(received, sent);
}

TEST_F(NatPmpServerTest, DeletionAndExpiryEndPortAndConnections) {
    const auto forwards = [this](std::uint16_t port) {
        const platform::FileDescriptor probe(socket(AF_INET, SOCK_STREAM, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(Loopback);
        return connect(probe.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    };
    const auto first = ask(NatPmpOpcode::MapTcp, internal, 0, 60);
    const platform::FileDescriptor viewer = openConnection({Loopback, first.externalPort});
    settle();
    EXPECT_EQ(ask(NatPmpOpcode::MapTcp, internal, 0, 0).externalPort, 0);
    EXPECT_EQ(receive(viewer), "");
    EXPECT_FALSE(forwards(first.externalPort));

    const auto second = ask(NatPmpOpcode::MapTcp, internal, first.externalPort, 60);
    EXPECT_EQ(second.externalPort, first.externalPort);
    now += 40s;
    EXPECT_EQ(ask(NatPmpOpcode::MapTcp, internal, 1, 60).externalPort, first.externalPort);
    EXPECT_EQ(table.nextExpiry(), now + 60s);
    table.expire(now + 59s);
    EXPECT_TRUE(forwards(second.externalPort));
    table.expire(now + 60s);
    EXPECT_FALSE(forwards(second.externalPort));
    EXPECT_EQ(table.text(now), "Mappings: 0");

    const std::string port = std::to_string(first.externalPort);
    const std::string way = "TCP 127.0.0.1:" + port + " -> 127.0.0.1:" + std::to_string(internal);
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
