#pragma once

#include <cstdint>
#include <optional>

#include "platform/linux/nat/codec/ByteOrder.h"
#include "platform/linux/nat/codec/PortControl.h"

namespace zelvo::platform {

inline constexpr std::uint8_t NatPmpVersion = 0;

/// RFC 6886 3.2 and 3.3.
enum class NatPmpOpcode : std::uint8_t { ExternalAddress = 0, MapUdp = 1, MapTcp = 2 };

/// RFC 6886 3.5.
inline constexpr std::uint16_t NatPmpSuccess = 0;
inline constexpr std::uint16_t NatPmpUnsupportedVersion = 1;
inline constexpr std::uint16_t NatPmpNotAuthorized = 2;
inline constexpr std::uint16_t NatPmpNetworkFailure = 3;
inline constexpr std::uint16_t NatPmpOutOfResources = 4;
inline constexpr std::uint16_t NatPmpUnsupportedOpcode = 5;

/// Ports in host byte order. The fields behind the opcode belong to the mapping requests alone.
struct NatPmpRequest {
    NatPmpOpcode opcode = NatPmpOpcode::ExternalAddress;
    std::uint16_t internalPort = 0;
    std::uint16_t externalPort = 0;
    /// Seconds; 0 withdraws the mapping.
    std::uint32_t lifetime = 0;
};

struct NatPmpResponse {
    NatPmpOpcode opcode = NatPmpOpcode::ExternalAddress;
    std::uint16_t result = NatPmpSuccess;
    /// Seconds since the router's table was last lost.
    std::uint32_t epoch = 0;
    /// Host byte order; of an address response only.
    std::uint32_t externalAddress = 0;
    std::uint16_t internalPort = 0;
    std::uint16_t externalPort = 0;
    std::uint32_t lifetime = 0;
};

Bytes encode(const NatPmpRequest& request);
Bytes encode(const NatPmpResponse& response);

/// The eight bytes that say "not this version" (RFC 6886 3.5) for whatever `opcode` was asked.
Bytes encodeNatPmpVersionRefusal(std::uint8_t opcode, std::uint32_t epoch);

/// Nothing for what is not exactly one request, or response, of version 0. A failure response may
/// come short, without the fields behind the epoch.
std::optional<NatPmpRequest> decodeNatPmpRequest(ByteView datagram);
std::optional<NatPmpResponse> decodeNatPmpResponse(ByteView datagram);

}  // namespace zelvo::platform
