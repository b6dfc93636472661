#pragma once

#include <cstdint>
#include <string>

namespace zelvo::platform {

/// True for addresses that no router of the internet forwards to: private ones (RFC 1918) and those
/// between a provider and its customers (RFC 6598). Host byte order.
bool isBehindAnotherRouter(std::uint32_t address);

/// Why nobody can come in from outside by this address of the router's, in a sentence; empty where
/// nothing speaks against it.
std::string explainExternalAddress(std::uint32_t address);

}  // namespace zelvo::platform
