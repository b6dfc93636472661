#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include "server/gate/Gate.h"

namespace zelvo::server {

using namespace std::chrono_literals;
using namespace std::string_literals;
using namespace platform::gate;
using platform::FileDescriptor;

inline const auto Version38 = "RFB 003.008\n"s;

/// The gate on a port of loopback, strangers on 127/8, and Zelvo's part.
class GateFixture : public testing::Test {
  protected:
    GateFixture() {
        auto listener = Gate::bind(0);
        EXPECT_TRUE(Gate::listen(listener));
        sockaddr_in address{};
        socklen_t size = sizeof address;
        ::getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &size);
        port = ntohs(address.sin_port);
        gate = std::make_unique<Gate>(
            loop, std::move(listener),
            Gate::Handlers{.tell = [this](const auto& message) { told.push_back(message); },
                           .admit =
                               [this](auto, auto socket, auto) {
                                   servers.push_back(std::exchange(server, std::move(socket)));
                               },
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
    /// The VNC side's end of the last who came in, and those before.
    FileDescriptor server;
    std::vector<FileDescriptor> servers;
    bool inputPasses = true;
    std::unique_ptr<Gate> gate;
};

}  // namespace zelvo::server
