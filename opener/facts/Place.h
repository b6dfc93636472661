#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace zelvo::opener {

/// Whether an address (host byte order) lies in a network that this computer is in.
using IsOwnNetwork = std::function<bool(std::uint32_t address)>;

/// Of this computer's interfaces, as they are now. Any thread.
bool isOwnNetwork(std::uint32_t address);

/// Whether a sharing service may send us to an address (IPv4, dotted decimal) and port. It speaks
/// for the internet: nothing on this computer's loopback is to be reached by its word, nor private
/// networks that this computer is not in. What is private but next to us, or an address of our own,
/// may be a host behind the same router; ports below 1024, where routers and other devices have
/// what they serve, are not tried there.
bool mayBeSentTo(const std::string& address, std::uint16_t port,
                 const IsOwnNetwork& isOwn = isOwnNetwork);

/// Whether a service's origin ("https://...") is this computer itself, which may send anywhere.
bool isOnLoopback(const std::string& origin);

}  // namespace zelvo::opener
