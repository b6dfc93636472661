#pragma once

#include <optional>
#include <string>

#include "platform/linux/nat/upnp/UpnpUrl.h"

namespace zelvo::platform {

/// Where and how a UPnP gateway takes orders.
struct UpnpService {
    UpnpUrl control;
    /// "urn:schemas-upnp-org:service:WANIPConnection:1" or one of its kin.
    std::string type;
};

/// Reads a device's description (XML). Nothing for a device that is no gateway, or that wants its
/// orders sent to another host than the one it lies on.
std::optional<UpnpService> readUpnpDescription(const std::string& xml, const UpnpUrl& location);

}  // namespace zelvo::platform
