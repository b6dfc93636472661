#include "platform/linux/nat/KernelRoutes.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/nat/base/LocalBinding.h"
#include "platform/linux/netlink/DefaultRoutes.h"

namespace zelvo::platform {

namespace {

FileDescriptor openDatagrams() {
    return FileDescriptor(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
}

std::optional<RouterRoute> routeOf(const FileDescriptor& socket, std::uint32_t router) {
    // Connecting a datagram socket sends nothing; any port serves.
    sockaddr_in address = socketAddress({router, 1});
    socklen_t size = sizeof address;
    if (!socket || connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
        getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        return std::nullopt;
    }
    return RouterRoute{router, ntohl(address.sin_addr.s_addr), 0};
}

}  // namespace

std::optional<RouterRoute> KernelRoutes::defaultRoute() const {
    for (const auto& found : defaultRoutes(AF_INET)) {
        if (found.gateway == 0) {
            continue;
        }
        auto route = to(found.gateway);
        if (route) {
            route->interfaceIndex = found.interfaceIndex;
        }
        return route;
    }
    return std::nullopt;
}

std::optional<RouterRoute> KernelRoutes::to(std::uint32_t router) const {
    return routeOf(openDatagrams(), router);
}

std::optional<RouterRoute> KernelRoutes::toNeighbour(std::uint32_t router) const {
    const FileDescriptor socket = openDatagrams();
    const int on = 1;
    if (!socket || setsockopt(socket.get(), SOL_SOCKET, SO_DONTROUTE, &on, sizeof on) != 0) {
        return std::nullopt;
    }
    return routeOf(socket, router);
}

bool KernelRoutes::isOwnAddress(std::uint32_t address) const {
    const FileDescriptor socket = openDatagrams();
    return address != 0 && socket && bindLocally(socket, {address, 0});
}

}  // namespace zelvo::platform
