#include "router/Sockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>

namespace zelvo::router {

namespace {

sockaddr_in socketAddress(const Endpoint& endpoint) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(endpoint.port);
    address.sin_addr.s_addr = htonl(endpoint.address);
    return address;
}

platform::FileDescriptor openSocket(int type) {
    return platform::FileDescriptor(::socket(AF_INET, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

bool bindTo(const platform::FileDescriptor& socket, const Endpoint& local) {
    const sockaddr_in address = socketAddress(local);
    return socket &&
           bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace

std::string text(std::uint32_t address) {
    const in_addr raw{htonl(address)};
    std::array<char, INET_ADDRSTRLEN> buffer{};
    return inet_ntop(AF_INET, &raw, buffer.data(), buffer.size());
}

std::string text(const Endpoint& endpoint) {
    return text(endpoint.address) + ":" + std::to_string(endpoint.port);
}

std::optional<std::uint32_t> parseAddress(const std::string& text) {
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) {
        return std::nullopt;
    }
    return ntohl(address.s_addr);
}

platform::FileDescriptor openDatagramSocket(const Endpoint& local) {
    platform::FileDescriptor socket = openSocket(SOCK_DGRAM);
    return bindTo(socket, local) ? std::move(socket) : platform::FileDescriptor();
}

platform::FileDescriptor openListener(const Endpoint& local) {
    platform::FileDescriptor socket = openSocket(SOCK_STREAM);
    // Connections that have just ended do not keep their port from the next mapping.
    const int on = 1;
    setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (!bindTo(socket, local) || listen(socket.get(), SOMAXCONN) != 0) {
        return {};
    }
    return socket;
}

platform::FileDescriptor openConnection(const Endpoint& peer) {
    platform::FileDescriptor socket = openSocket(SOCK_STREAM);
    const sockaddr_in address = socketAddress(peer);
    if (!socket ||
        (connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
         errno != EINPROGRESS)) {
        return {};
    }
    return socket;
}

Endpoint localEndpoint(const platform::FileDescriptor& socket) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size);
    return {ntohl(address.sin_addr.s_addr), ntohs(address.sin_port)};
}

}  // namespace zelvo::router
