#include "serving/Listening.h"

#include <netdb.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <memory>

namespace zelvo::serving {
namespace {

constexpr int Backlog = 1024;
/// Descriptors for everything but clients: 32 probes and 64 connections of operators at once, the
/// database's readers or connections, the log, and a few for each core's loop.
constexpr std::size_t OtherDescriptors = 192;

}  // namespace

platform::FileDescriptor listenOn(const std::string& address, int port) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICHOST | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    if (::getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found) != 0)
        return {};
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> release(found, &freeaddrinfo);
    platform::FileDescriptor socket(
        ::socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    // Not SO_REUSEPORT, with which a second service would take half of the clients.
    const int on = 1;
    ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (::bind(socket.get(), found->ai_addr, found->ai_addrlen) != 0 ||
        ::listen(socket.get(), Backlog) != 0)
        return {};
    return socket;
}

int portOf(int socket) {
    sockaddr_storage name{};
    socklen_t size = sizeof name;
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&name), &size);
    // The port lies at the same place in both families.
    return ntohs(reinterpret_cast<const sockaddr_in&>(name).sin_port);
}

std::size_t connectionLimit() {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
    ::getrlimit(RLIMIT_NOFILE, &limit);
    return limit.rlim_cur > 2 * OtherDescriptors ? limit.rlim_cur - OtherDescriptors
                                                 : OtherDescriptors;
}

}  // namespace zelvo::serving
