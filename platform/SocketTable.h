#pragma once

#include <optional>
#include <string>

namespace zelvo::platform {

enum class SocketFamily { IPv4, Any };
enum class SocketState { Listen, Established };

struct SocketListing {
    /// One line a socket, such as "tcp4 0 0 *.5900 *.* LISTEN": protocol, two queues, local
    /// address, foreign address, state; an address and its port joined by a point, "*" for a
    /// wildcard.
    std::optional<std::string> text;
    /// Why there is no text.
    std::string error;
};

/// The kernel's table of TCP sockets. Any thread.
class SocketTable {
  public:
    virtual ~SocketTable() = default;

    /// The sockets of at least the given state; others may be left out. `IPv4` lists every socket
    /// that accepts IPv4, also an IPv6 wildcard listener without IPV6_V6ONLY (RFC 3493,
    /// section 5.3), whose protocol column then reads "tcp46".
    virtual SocketListing tcpSockets(SocketFamily family, SocketState state) const = 0;
};

}  // namespace zelvo::platform
