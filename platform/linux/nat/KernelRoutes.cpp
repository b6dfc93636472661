#include "platform/linux/nat/KernelRoutes.h"

#include <arpa/inet.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <limits>

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/nat/base/LocalBinding.h"

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
    auto route = to(best.gateway);
    if (route) {
        route->interfaceIndex = best.interfaceIndex;
    }
    return route;
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
