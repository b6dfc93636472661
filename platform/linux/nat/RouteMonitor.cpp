#include "platform/linux/nat/RouteMonitor.h"

#include <arpa/inet.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <limits>

namespace zelvo::platform {

namespace {

struct DumpRequest {
    nlmsghdr header;
    rtmsg route;
};

struct Candidate {
    std::uint32_t gateway = 0;
    std::uint32_t metric = std::numeric_limits<std::uint32_t>::max();
    int interfaceIndex = 0;
};

/// Takes a default route of the main table over a worse one.
void considerRoute(const nlmsghdr* message, Candidate& best) {
    const auto* route = static_cast<const rtmsg*>(NLMSG_DATA(message));
    if (route->rtm_dst_len != 0 || route->rtm_table != RT_TABLE_MAIN ||
        route->rtm_type != RTN_UNICAST || (route->rtm_flags & (RTNH_F_DEAD | RTNH_F_LINKDOWN))) {
        return;
    }
    Candidate found;
    found.metric = 0;
    auto length = RTM_PAYLOAD(message);
    for (const rtattr* attribute = RTM_RTA(route); RTA_OK(attribute, length);
         attribute = RTA_NEXT(attribute, length)) {
        if (RTA_PAYLOAD(attribute) < sizeof(std::uint32_t)) {
            continue;
        }
        const auto value = *static_cast<const std::uint32_t*>(RTA_DATA(attribute));
        if (attribute->rta_type == RTA_GATEWAY) {
            found.gateway = ntohl(value);
        } else if (attribute->rta_type == RTA_PRIORITY) {
            found.metric = value;
        } else if (attribute->rta_type == RTA_OIF) {
            found.interfaceIndex = static_cast<int>(value);
        }
    }
    if (found.gateway != 0 && found.metric < best.metric) {
        best = found;
    }
}

/// Reads the answer to a dump; false when it has ended.
bool readDump(int socket, Candidate& best) {
    alignas(nlmsghdr) std::array<char, 32768> buffer;
    const ssize_t size = recv(socket, buffer.data(), buffer.size(), 0);
    if (size <= 0) {
        return false;
    }
    auto left = static_cast<unsigned>(size);
    for (const auto* message = reinterpret_cast<const nlmsghdr*>(buffer.data());
         NLMSG_OK(message, left); message = NLMSG_NEXT(message, left)) {
        if (message->nlmsg_type == NLMSG_DONE || message->nlmsg_type == NLMSG_ERROR) {
            return false;
        }
        if (message->nlmsg_type == RTM_NEWROUTE) {
            considerRoute(message, best);
        }
    }
    return true;
}

}  // namespace

std::optional<RouterRoute> readDefaultRoute() {
    const FileDescriptor socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    DumpRequest request{};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_GETROUTE;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.route.rtm_family = AF_INET;
    if (!socket || send(socket.get(), &request, sizeof request, 0) < 0) {
        return std::nullopt;
    }
    Candidate best;
    while (readDump(socket.get(), best)) {
    }
    if (best.gateway == 0) {
        return std::nullopt;
    }
    auto route = readRouteTo(best.gateway);
    if (route) {
        route->interfaceIndex = best.interfaceIndex;
    }
    return route;
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
