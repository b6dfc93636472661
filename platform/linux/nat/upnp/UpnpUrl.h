#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/nat/base/NatNetwork.h"

namespace zelvo::platform {

/// An address of a router's web server: plain http and an IPv4 address, which is all that UPnP
/// routers use.
struct UpnpUrl {
    Ipv4Endpoint server;
    /// Begins with a slash.
    std::string path;

    /// Nothing for any other URL, host names included, and for what does not fit on a request line.
    static std::optional<UpnpUrl> parse(std::string_view text);
    /// What `reference` means on a page that lies here: an URL, or a path.
    std::optional<UpnpUrl> resolve(std::string_view reference) const;

    friend bool operator==(const UpnpUrl&, const UpnpUrl&) = default;
};

}  // namespace zelvo::platform
