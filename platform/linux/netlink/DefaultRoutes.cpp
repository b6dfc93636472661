#include "platform/linux/netlink/DefaultRoutes.h"

#include <arpa/inet.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <optional>

namespace zelvo::platform {

namespace {

/// Calls `use` with the type and the value of each attribute.
template <typename Use>
void forEachAttribute(std::span<const std::byte> bytes, Use use) {
    while (bytes.size() >= sizeof(rtattr)) {
        rtattr attribute;
        std::memcpy(&attribute, bytes.data(), sizeof attribute);
        if (attribute.rta_len < sizeof attribute || attribute.rta_len > bytes.size())
            return;
        use(attribute.rta_type, bytes.first(attribute.rta_len).subspan(RTA_LENGTH(0)));
        bytes = bytes.subspan(std::min<std::size_t>(RTA_ALIGN(attribute.rta_len), bytes.size()));
    }
}

void readHop(std::span<const std::byte> attributes, std::uint8_t family, DefaultRoute& route) {
    forEachAttribute(attributes, [&](std::uint16_t type, std::span<const std::byte> value) {
        std::uint32_t number = 0;
        if (value.size() < sizeof number)
            return;
        std::memcpy(&number, value.data(), sizeof number);
        if (type == RTA_GATEWAY && family == AF_INET)
            route.gateway = ntohl(number);
        else if (type == RTA_PRIORITY)
            route.metric = number;
        else if (type == RTA_OIF)
            route.interfaceIndex = static_cast<int>(number);
        else if (type == RTA_MULTIPATH && value.size() >= sizeof(rtnexthop)) {
            // The first of several ways stands for all.
            rtnexthop hop;
            std::memcpy(&hop, value.data(), sizeof hop);
            route.interfaceIndex = hop.rtnh_ifindex;
            auto length = std::min<std::size_t>(hop.rtnh_len, value.size());
            if (length >= sizeof hop)
                readHop(value.first(length).subspan(sizeof hop), family, route);
        }
    });
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
    DefaultRoute found;
    readHop(message.subspan(NLMSG_ALIGN(sizeof route)), family, found);
    return found;
}

}  // namespace

std::vector<DefaultRoute> defaultRoutes(std::uint8_t family, const NetlinkOpener& open) {
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
                   }},
              open);
    std::stable_sort(routes.begin(), routes.end(),
                     [](const auto& a, const auto& b) { return a.metric < b.metric; });
    return routes;
}

}  // namespace zelvo::platform
