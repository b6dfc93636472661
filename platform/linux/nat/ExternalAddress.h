#pragma once

#include <cstdint>
#include <string>

namespace zelvo::platform {

/// True for addresses that no router of the internet forwards to: private ones (RFC 1918) and those
/// between a provider and its customers (RFC 6598). Host byte order.
bool isBehindAnotherRouter(std::uint32_t address);

/// True for addresses that are none of a router's: of this host, of groups, of nobody (RFC 1122,
/// section 3.2.1.3; RFC 1112, section 4). A router on loopback has one there. Host byte order.
bool isNoExternalAddress(std::uint32_t address, std::uint32_t router);

/// Why nobody can come in from outside by this address of the router's, in a sentence; empty where
/// nothing speaks against it.
std::string explainExternalAddress(std::uint32_t address);

}  // namespace zelvo::platform
