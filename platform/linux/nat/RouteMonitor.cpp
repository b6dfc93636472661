#include "platform/linux/nat/RouteMonitor.h"

#include <arpa/inet.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>

#include "platform/linux/netlink/DefaultRoutes.h"

namespace zelvo::platform {

std::optional<RouterRoute> readDefaultRoute() {
    for (const auto& found : defaultRoutes(AF_INET)) {
        if (found.gateway == 0)
            continue;
        auto route = readRouteTo(found.gateway);
        if (route)
            route->interfaceIndex = found.interfaceIndex;
        return route;
    }
    return std::nullopt;
}

std::optional<RouterRoute> readRouteTo(std::uint32_t router) {
    const FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    // Connecting a datagram socket sends nothing; any port serves.
    address.sin_port = htons(1);
    address.sin_addr.s_addr = htonl(router);
    socklen_t size = sizeof address;
    if (!socket || connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
        getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        return std::nullopt;
    }
    return RouterRoute{router, ntohl(address.sin_addr.s_addr), 0};
}

RouteMonitor::RouteMonitor(PollLoop& loop, std::function<void()> changed)
    : changed_(std::move(changed)),
      socket_(::socket(AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, NETLINK_ROUTE)) {
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    // A cable that comes back changes nothing but its link, where the routes and addresses stay.
    address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_ROUTE | RTMGRP_IPV4_IFADDR;
    if (socket_ &&
        bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
        watch_ = loop.watch(socket_.get(), POLLIN, [this](short) { drain(); });
    }
}

void RouteMonitor::drain() {
    // What has changed is read afresh anyway; the notices themselves are of no interest.
    std::array<char, 8192> buffer;
    while (recv(socket_.get(), buffer.data(), buffer.size(), 0) > 0) {
    }
    changed_();
}

}  // namespace zelvo::platform
