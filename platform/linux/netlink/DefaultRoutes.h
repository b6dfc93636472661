#pragma once

#include <cstdint>
#include <vector>

#include "platform/linux/netlink/NetlinkQuestion.h"

namespace zelvo::platform {

/// A default route of the kernel's main table that traffic can take.
struct DefaultRoute {
    int interfaceIndex = 0;
    /// In host byte order; 0 without a gateway, as on a tunnel, and for IPv6.
    std::uint32_t gateway = 0;
    /// The kernel takes the lowest.
    std::uint32_t metric = 0;
};

/// Those of an address family, AF_INET or AF_INET6, in the order in which the kernel prefers them;
/// none, too, when the kernel does not answer. Any thread.
std::vector<DefaultRoute> defaultRoutes(std::uint8_t family,
                                        const NetlinkOpener& open = openNetlink);

}  // namespace zelvo::platform
