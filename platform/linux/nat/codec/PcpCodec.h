#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "platform/linux/nat/codec/ByteOrder.h"
#include "platform/linux/nat/codec/PortControl.h"

namespace zelvo::platform {

inline constexpr std::uint8_t PcpVersion = 2;
/// RFC 6887 7: longer packets are not PCP.
inline constexpr std::size_t PcpMaximumSize = 1100;

enum class PcpOpcode : std::uint8_t { Announce = 0, Map = 1 };

/// RFC 6887 7.4; those that we tell apart.
enum class PcpResult : std::uint8_t {
    Success = 0,
    UnsupportedVersion = 1,
    NotAuthorized = 2,
    MalformedRequest = 3,
    UnsupportedOpcode = 4,
    NetworkFailure = 7,
    NoResources = 8,
    UserExceededQuota = 10,
    CannotProvideExternal = 11,
    AddressMismatch = 12,
};

using PcpNonce = std::array<std::uint8_t, 12>;

/// The two nonces of a port pair, kept for as long as it is mapped.
struct PcpNonces {
    PcpNonce tcp{};
    PcpNonce udp{};

    friend bool operator==(const PcpNonces&, const PcpNonces&) = default;
};

/// The fields of the MAP opcode (RFC 6887 11.1); ports and addresses in host byte order.
struct PcpMap {
    PcpNonce nonce{};
    Transport transport = Transport::Tcp;
    std::uint16_t internalPort = 0;
    std::uint16_t externalPort = 0;
    /// IPv4 alone, travelling as an IPv4-mapped address; 0 for none.
    std::uint32_t externalAddress = 0;
};

struct PcpRequest {
    PcpOpcode opcode = PcpOpcode::Announce;
    /// Seconds; 0 withdraws the mapping.
    std::uint32_t lifetime = 0;
    std::uint32_t clientAddress = 0;
    PcpMap map;
};

struct PcpResponse {
    PcpOpcode opcode = PcpOpcode::Announce;
    PcpResult result = PcpResult::Success;
    /// Of a refusal: how long to leave the router in peace.
    std::uint32_t lifetime = 0;
    std::uint32_t epoch = 0;
    PcpMap map;
};

Bytes encode(const PcpRequest& request);
/// Nothing for what is not one response of version 2 to one of our opcodes.
std::optional<PcpResponse> decodePcpResponse(ByteView datagram);

/// What only a router, or one who plays it, needs.
Bytes encode(const PcpResponse& response);
std::optional<PcpRequest> decodePcpRequest(ByteView datagram);

/// True where a router answers in another version of the protocol that it does not know the one
/// that was asked (RFC 6887 9, RFC 6886 3.5): `asked` is the version of the request.
bool isVersionRefusal(ByteView datagram, std::uint8_t asked);

}  // namespace zelvo::platform
