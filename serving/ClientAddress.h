#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

struct sockaddr;

namespace zelvo::serving {

/// Where a client's connection comes from. An IPv4 address is one, in whichever family the socket
/// says it.
class ClientAddress {
  public:
    ClientAddress() = default;
    /// Nothing for a family that is neither.
    static std::optional<ClientAddress> of(const sockaddr* address);
    static std::optional<ClientAddress> parse(const std::string& text);
    /// Of the other end of the socket.
    static std::optional<ClientAddress> ofPeer(int socket);
    static ClientAddress ofIpv4(const std::uint8_t* bytes);
    static ClientAddress ofIpv6(const std::uint8_t* bytes);

    std::string text() const;
    bool isIpv4() const;
    /// What is one client: an IPv4 address, or the /64 that one subscriber has of IPv6.
    std::string budgetKey() const;

    friend auto operator<=>(const ClientAddress&, const ClientAddress&) = default;

  private:
    /// As IPv6, IPv4 mapped into it (RFC 4291, section 2.5.5.2).
    std::array<std::uint8_t, 16> bytes_{};
};

}  // namespace zelvo::serving
