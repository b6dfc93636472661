#include "server/gate/Gate.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include "tests/support/Socket.h"

namespace zelvo::server {

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using namespace platform::gate;
using platform::FileDescriptor;

const auto Version38 = "RFB 003.008\n"s;

/// The gate on a port of loopback, strangers on 127/8, and Zelvo's part.
class GateTest : public testing::Test {
  protected:
    GateTest() {
        auto listener = Gate::bind(0);
        EXPECT_TRUE(Gate::listen(listener));
        sockaddr_in address{};
        socklen_t size = sizeof address;
        ::getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &size);
        port = ntohs(address.sin_port);
        gate = std::make_unique<Gate>(
            loop, std::move(listener),
            Gate::Handlers{.tell = [this](const auto& message) { told.push_back(message); },
                           .admit = [this](auto, auto socket, auto) { server = std::move(socket); },
                           .setRights = [](auto, auto) {},
                           .setInputPasses = [this](bool passes) { inputPasses = passes; }});
    }

    void turn(std::chrono::milliseconds time = 30ms) {
        const auto until = platform::EventLoop::Clock::now() + time;
        do {
            loop.turn(std::min(until, gate->nextDeadline()));
            gate->tick(platform::EventLoop::Clock::now());
        } while (platform::EventLoop::Clock::now() < until);
    }

    /// Somebody of 127.0.HOST.1.
    FileDescriptor connect(int host = 0, int flags = 0) {
        FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(0x7F000001U + static_cast<std::uint32_t>(host) * 256);
        ::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(port);
        const int result =
            ::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
        EXPECT_TRUE(result == 0 || errno == EINPROGRESS);
        return socket;
    }
    static void say(const FileDescriptor& socket, const std::string& bytes) {
        ::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
    static std::string hear(const FileDescriptor& socket) {
        std::string bytes(1 << 16, '\0');
        const auto count = ::recv(socket.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
        return count < 0    ? "nothing"
               : count == 0 ? "end"
                            : bytes.substr(0, static_cast<std::size_t>(count));
    }
    /// A viewer of version 3.8 who has said all of the handshake.
    FileDescriptor asking(int host = 0) {
        auto socket = connect(host);
        say(socket, Version38 + "\x01");
        turn();
        hear(socket);
        return socket;
    }
    template <typename M>
    std::vector<M> all() const {
        std::vector<M> found;
        for (const auto& message : told) {
            if (const auto* one = std::get_if<M>(&message))
                found.push_back(*one);
        }
        return found;
    }

    platform::EventLoop loop;
    std::uint16_t port = 0;
    std::vector<Message> told;
    FileDescriptor server;
    bool inputPasses = true;
    std::unique_ptr<Gate> gate;
};

TEST_F(GateTest, LetsInExactlyWhoWasMeant) {
    auto first = asking(1);
    auto second = asking(2);
    ASSERT_EQ(all<Question>().size(), 2U);
    const auto question = all<Question>()[1];
    EXPECT_EQ(question.viewer, all<Question>()[0].viewer);
    EXPECT_EQ(question.peer.address, (std::array<std::uint8_t, 4>{127, 0, 1, 1}));
    EXPECT_EQ(question.waiting, 1);
    gate->handle(Reply{question.viewer + 1, Answer::Control});
    turn();
    EXPECT_EQ(hear(first), "nothing");
    EXPECT_EQ(hear(second), "nothing") << "who is not asked about is not let in";

    gate->handle(Reply{question.viewer, Answer::Control});
    ASSERT_TRUE(server);
    say(server, Version38 + "\x01\x01\x00\x00\x00\x00init"s);
    say(first, "\x01"s + "\x04\x01\x00\x00\x00\x00\x00\x61"s);
    turn();
    EXPECT_EQ(hear(first), "\x00\x00\x00\x00init"s);
    EXPECT_EQ(hear(server), Version38 + "\x01\x01\x04\x01\x00\x00\x00\x00\x00\x61"s);

    // While the next question can be answered nobody inside may.
    gate->handle(QuestionShown{true});
    say(first, "\x05\x01\x00\x10\x00\x10"s);
    turn();
    EXPECT_EQ(hear(server), "nothing");
    EXPECT_FALSE(inputPasses);
    gate->handle(QuestionShown{false});
    gate->handle(SetRights{question.viewer, Rights::Watch});
    say(first, "\x05\x01\x00\x10\x00\x10\x03\x00\x00\x00\x00\x00\x00\x08\x00\x08"s);
    turn();
    EXPECT_EQ(hear(server), "\x03\x00\x00\x00\x00\x00\x00\x08\x00\x08"s);

    gate->handle(Disconnect{everybody});
    turn();
    EXPECT_EQ(hear(first), "end");
    EXPECT_EQ(hear(server), "end");
    EXPECT_TRUE(hear(second).starts_with("\x00\x00\x00\x01"s));
    EXPECT_EQ(all<Left>(), (std::vector{Left{question.viewer, Ending::Disconnected}}));
}

TEST_F(GateTest, TakesAQuestionBackWhoseViewerHasGone) {
    auto viewer = asking(1);
    auto next = asking(2);
    viewer.reset();
    turn();
    EXPECT_EQ(all<QuestionOver>().size(), 1U);
    EXPECT_EQ(all<Question>().back().peer.address[2], 2);
    gate->handle(Reply{all<Question>().back().viewer, Answer::Refuse});
    turn();
    EXPECT_EQ(hear(next).substr(0, 4), "\x00\x00\x00\x01"s);
}

TEST_F(GateTest, IsNotImpressedByAThousandConnections) {
    std::vector<FileDescriptor> strangers;
    for (int i = 0; i < 1000; ++i) {
        strangers.push_back(connect(i % 200, SOCK_NONBLOCK));
        if (i % 10 == 9)
            turn(1ms);
    }
    turn(200ms);
    EXPECT_TRUE(all<Question>().empty());
    strangers.clear();
    turn(200ms);
    auto viewer = asking(201);
    for (int i = 0; i < 50 && all<Question>().empty(); ++i)
        turn(100ms);
    EXPECT_EQ(all<Question>().size(), 1U) << "somebody who means it comes through afterwards";
}

}  // namespace

}  // namespace zelvo::server
