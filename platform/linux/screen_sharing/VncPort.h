#pragma once

#include <cstdint>

#include "platform/ServicesDatabase.h"

namespace zelvo::platform {

/// The port of Screen Sharing: the service "vnc-server", or 5900, which is assigned to RFB, where
/// the services database lacks it.
inline std::uint16_t vncPort(const ServicesDatabase& services) {
    return services.tcpPort("vnc-server").value_or(5900);
}

}  // namespace zelvo::platform
