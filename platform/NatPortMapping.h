#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace zelvo::platform {

/// Error codes of the mapping service; 0 is success, all others are negative.
inline constexpr std::int32_t NatErrorNone = 0;
inline constexpr std::int32_t NatErrorUnknown = -65537;
inline constexpr std::int32_t NatErrorNoMemory = -65539;
inline constexpr std::int32_t NatErrorBadParam = -65540;
inline constexpr std::int32_t NatErrorInvalid = -65549;
/// The router itself has no address on the internet.
inline constexpr std::int32_t NatErrorTransient = -65562;
inline constexpr std::int32_t NatErrorNotRunning = -65563;
/// The router knows no mapping protocol, or has it switched off.
inline constexpr std::int32_t NatErrorPortMappingUnsupported = -65564;
inline constexpr std::int32_t NatErrorPortMappingDisabled = -65565;
inline constexpr std::int32_t NatErrorNoRouter = -65566;
inline constexpr std::int32_t NatErrorTimeout = -65568;

/// Protocols of a request, to be joined.
inline constexpr std::uint32_t NatProtocolUdp = 0x10;
inline constexpr std::uint32_t NatProtocolTcp = 0x20;

/// A mapping request that is open. Destroying it withdraws the mapping from the router (awaited in
/// the background, at the latest when the service ends) and brings no further reply. Main thread
/// only.
class NatPortMappingReference {
  public:
    virtual ~NatPortMappingReference() = default;

    /// Delivers the replies on the main queue from now on. 0, or an error code.
    virtual std::int32_t setMainQueue() = 0;
};

/// One answer of the mapping service, fields as the service delivers them.
struct NatPortMappingReply {
    std::uint32_t flags = 0;
    std::uint32_t interfaceIndex = 0;
    std::int32_t errorCode = 0;
    /// IPv4, in network byte order; 0 when there is none.
    std::uint32_t externalAddress = 0;
    std::uint32_t protocol = 0;
    /// Both in network byte order; the external port is 0 when nothing is mapped.
    std::uint16_t internalPort = 0;
    std::uint16_t externalPort = 0;
    /// Granted lease in seconds.
    std::uint32_t ttl = 0;
};

struct NatPortMappingRequest {
    std::uint32_t flags = 0;
    /// 0 for any.
    std::uint32_t interfaceIndex = 0;
    std::uint32_t protocol = 0;
    /// Both in network byte order. The external one is a wish.
    std::uint16_t internalPort = 0;
    std::uint16_t externalPort = 0;
    /// Seconds; 0 asks for the service's default lease.
    std::uint32_t ttl = 0;
};

/// The service that asks the home router to forward ports. Main thread only.
class NatPortMapping {
  public:
    using Callback = std::function<void(const NatPortMappingReply&)>;

    virtual ~NatPortMapping() = default;

    /// Opens a request: 0 and `reference` filled, or an error code and `reference` empty. The
    /// service answers later, again after each change of external address or port, and renews the
    /// lease for as long as the reference lives. No reply comes before `setMainQueue`.
    virtual std::int32_t create(std::unique_ptr<NatPortMappingReference>& reference,
                                const NatPortMappingRequest& request, Callback callback) = 0;
};

}  // namespace zelvo::platform
