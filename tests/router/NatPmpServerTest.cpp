#include "router/NatPmpServer.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include "platform/linux/nat/codec/NatPmpCodec.h"
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
    MappingTable table{loop, Loopback, [](const auto&) {}};
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
    for (int round = 0; round < 2000; ++round) {
        const ssize_t size = send(viewer.get(), block.data(), block.size(), 0);
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
}

}  // namespace zelvo::test
