#include "platform/linux/nat/RouteMonitor.h"

#include <linux/rtnetlink.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>

namespace zelvo::platform {

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
