#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/nat/base/RetrySchedule.h"
#include "platform/linux/nat/base/RouterMapping.h"
#include "platform/linux/nat/codec/ByteOrder.h"
#include "platform/linux/nat/codec/PcpCodec.h"
#include "platform/linux/nat/codec/PortControl.h"

namespace zelvo::platform {

/// What a response says, whichever protocol said it.
struct PortControlAnswer {
    enum class Kind : std::uint8_t { Probe, Map, WrongVersion };

    Kind kind = Kind::Probe;
    /// The failure in words; empty for success.
    std::string refusal;
    NatFailure failure = NatFailure::Refused;
    /// The failure is one of the moment: what is mapped stays mapped.
    bool mayPass = false;
    std::optional<std::uint32_t> epoch;
    std::optional<std::uint32_t> externalAddress;
    Transport transport = Transport::Tcp;
    std::uint16_t externalPort = 0;
    /// Of a refusal: how long to leave the router in peace, 0 where it does not say.
    std::chrono::seconds lifetime{0};
};

/// The router's table as it was last known to exist.
struct PortControlEpoch {
    std::uint32_t epoch = 0;
    NatTime heard{};
};

/// What differs between NAT-PMP and PCP: the packets, and a few rules about time.
class PortControlWire {
  public:
    virtual ~PortControlWire() = default;

    virtual std::string_view name() const = 0;

    /// A question that changes nothing.
    virtual Bytes probe() const = 0;
    /// A lifetime of 0 withdraws.
    virtual Bytes map(Transport transport, std::uint16_t externalPort,
                      std::chrono::seconds lifetime) const = 0;
    /// Nothing for a datagram that is no answer to what this object asks.
    virtual std::optional<PortControlAnswer> read(ByteView datagram) const = 0;

    /// True where the answer to the probe carries the external address, and nothing else does.
    virtual bool addressComesWithProbe() const = 0;
    /// False when the router has lost its table since `last`.
    virtual bool isContinuous(const PortControlEpoch& last, const PortControlEpoch& now) const = 0;
    /// How long to leave a mapping alone that is good for `left`.
    virtual std::chrono::milliseconds renewAfter(std::chrono::milliseconds left) = 0;
    virtual RetrySchedule schedule() const = 0;
    /// What else it takes to withdraw.
    virtual PcpNonces nonces() const { return {}; }
};

}  // namespace zelvo::platform
