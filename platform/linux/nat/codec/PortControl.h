#pragma once

#include <cstdint>

namespace zelvo::platform {

/// The port on which a router listens for NAT-PMP and PCP (RFC 6886 3, RFC 6887 19.1).
inline constexpr std::uint16_t PortControlPort = 5351;
/// The port on which clients hear the router's announcements (same sections).
inline constexpr std::uint16_t PortControlClientPort = 5350;

enum class Transport : std::uint8_t { Udp, Tcp };

}  // namespace zelvo::platform
