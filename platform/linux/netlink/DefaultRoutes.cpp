#include "platform/linux/netlink/DefaultRoutes.h"

#include <arpa/inet.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <span>

#include "platform/linux/netlink/NetlinkQuestion.h"

namespace zelvo::platform {

namespace {

template <typename Value>
std::optional<Value> valueOf(std::span<const std::byte> attributes, std::uint16_t type) {
    auto bytes = netlinkAttribute(attributes, type);
    if (!bytes || bytes->size() < sizeof(Value))
        return std::nullopt;
    Value value;
    std::memcpy(&value, bytes->data(), sizeof value);
    return value;
}

DefaultRoute routeOf(std::span<const std::byte> attributes, std::uint8_t family) {
    DefaultRoute route;
    route.metric = valueOf<std::uint32_t>(attributes, RTA_PRIORITY).value_or(0);
    route.interfaceIndex = valueOf<int>(attributes, RTA_OIF).value_or(0);
    if (auto hop = valueOf<rtnexthop>(attributes, RTA_MULTIPATH)) {
        // The first of several ways stands for all.
        auto hops = *netlinkAttribute(attributes, RTA_MULTIPATH);
        route.interfaceIndex = hop->rtnh_ifindex;
        attributes = hops.first(std::clamp<std::size_t>(hop->rtnh_len, sizeof *hop, hops.size()))
                         .subspan(sizeof *hop);
    }
    if (family == AF_INET)
        route.gateway = ntohl(valueOf<std::uint32_t>(attributes, RTA_GATEWAY).value_or(0));
    return route;
}

std::optional<DefaultRoute> usableDefault(std::span<const std::byte> message, std::uint8_t family) {
    rtmsg route;
    if (message.size() < sizeof route)
        return std::nullopt;
    std::memcpy(&route, message.data(), sizeof route);
    constexpr auto unusable = RTNH_F_DEAD | RTNH_F_LINKDOWN | RTM_F_CLONED;
    if (route.rtm_family != family || route.rtm_dst_len != 0 || route.rtm_src_len != 0 ||
        route.rtm_table != RT_TABLE_MAIN || route.rtm_type != RTN_UNICAST ||
        (route.rtm_flags & unusable) != 0)
        return std::nullopt;
    return routeOf(message.subspan(sizeof route), family);
}

}  // namespace

std::vector<DefaultRoute> defaultRoutes(std::uint8_t family) {
    rtmsg request{};
    request.rtm_family = family;
    std::vector<DefaultRoute> routes;
    askKernel({.protocol = NETLINK_ROUTE,
               .type = RTM_GETROUTE,
               .answerType = RTM_NEWROUTE,
               .bodies = {std::as_bytes(std::span(&request, 1))},
               .startOver = [&] { routes.clear(); },
               .take =
                   [&](std::span<const std::byte> message) {
                       if (auto route = usableDefault(message, family))
                           routes.push_back(*route);
                   }});
    std::stable_sort(routes.begin(), routes.end(),
                     [](const auto& a, const auto& b) { return a.metric < b.metric; });
    return routes;
}

}  // namespace zelvo::platform
