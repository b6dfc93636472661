#include "server/gate/ZelvoLine.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

namespace zelvo::server {

namespace {

using namespace platform::gate;

constexpr int longestGreeting = 5'000;  // ms

bool isOurs(int socket) {
    ucred peer{};
    socklen_t size = sizeof peer;
    return ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
           peer.uid == ::geteuid();
}

bool send(int socket, const Message& message) {
    auto bytes = encode(message);
    return ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
}

/// The bytes of one packet and one more, by which a longer one shows.
using Packet = std::array<std::byte, longestMessage + 1>;

std::optional<Message> receiveFrom(int socket, ssize_t& size) {
    Packet packet;
    size = ::recv(socket, packet.data(), packet.size(), 0);
    auto message =
        size > 0 ? decode(std::span(packet).first(static_cast<std::size_t>(size))) : std::nullopt;
    wipe(packet);
    return message;
}

}  // namespace

std::unique_ptr<ZelvoLine> ZelvoLine::open(platform::EventLoop& loop, const std::string& path,
                                           Handlers handlers) {
    platform::FileDescriptor socket(
        ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (!socket || path.size() >= sizeof address.sun_path)
        return nullptr;
    path.copy(address.sun_path, path.size());
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        !isOurs(socket.get()) || !send(socket.get(), Hello{}))
        return nullptr;
    pollfd input{socket.get(), POLLIN, 0};
    ssize_t size = 0;
    if (::poll(&input, 1, longestGreeting) != 1)
        return nullptr;
    auto greeting = receiveFrom(socket.get(), size);
    if (!greeting || !std::holds_alternative<Hello>(*greeting))
        return nullptr;
    return std::unique_ptr<ZelvoLine>(new ZelvoLine(loop, std::move(socket), std::move(handlers)));
}

ZelvoLine::ZelvoLine(platform::EventLoop& loop, platform::FileDescriptor socket, Handlers handlers)
    : socket_(std::move(socket)),
      handlers_(std::move(handlers)),
      watch_(loop, socket_.get(), [this](auto) { receive(); }) {
    watch_.setEvents(EPOLLIN);
}

void ZelvoLine::tell(const Message& message) {
    if (!hasEnded_ && !send(socket_.get(), message))
        end();
}

void ZelvoLine::receive() {
    while (!hasEnded_) {
        ssize_t size = 0;
        auto message = receiveFrom(socket_.get(), size);
        if (size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR))
            return;
        if (!message)
            return end();
        handlers_.message(*message);
    }
}

void ZelvoLine::end() {
    if (std::exchange(hasEnded_, true))
        return;
    watch_.setEvents(0);
    handlers_.ended();
}

}  // namespace zelvo::server
