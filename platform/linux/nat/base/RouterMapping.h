#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/linux/nat/base/MappingRecord.h"
#include "platform/linux/nat/base/NatClock.h"
#include "platform/linux/nat/codec/ByteOrder.h"

namespace zelvo::platform {

/// The port pair that is to be mapped. Host byte order.
struct PortWish {
    std::uint16_t internalPort = 0;
    /// Never 0: some routers open every port then.
    std::uint16_t externalPort = 0;
    bool tcp = true;
    bool udp = true;
    std::chrono::seconds lifetime{3600};
};

/// What a router has granted. Host byte order.
struct PortGrant {
    std::uint32_t externalAddress = 0;
    std::uint16_t externalPort = 0;
    bool tcp = false;
    bool udp = false;
    /// 0 where the router keeps the mapping until it is withdrawn.
    std::chrono::seconds lifetime{0};

    friend bool operator==(const PortGrant&, const PortGrant&) = default;
};

enum class NatFailure : std::uint8_t {
    /// Nothing was heard.
    Silent,
    /// The router does not speak this protocol.
    Unsupported,
    /// It does, and has no connection to the internet.
    Disconnected,
    /// It does, and will not map.
    Refused,
};

/// One port pair with one router by one protocol, from the first question to the withdrawal. It
/// renews itself while it is mapped. Whoever holds it looks at `phase` after every turn, calls
/// `wake` when `nextWake` has come, and ends with `release`, waiting until it is over.
class RouterMapping {
  public:
    enum class Phase : std::uint8_t {
        /// Finding out, without a mapping made, whether the router speaks the protocol.
        Probing,
        /// It does; `ask` may follow.
        Ready,
        Asking,
        Mapped,
        /// Withdrawing what was, or may have been, mapped.
        Releasing,
        Over,
    };

    virtual ~RouterMapping() = default;

    /// Asks the router for the mapping. In Phase::Ready only.
    virtual void ask() = 0;
    /// Withdraws; over after one second at the latest.
    virtual void release() = 0;
    /// The router may have forgotten: asks again for what is mapped.
    virtual void check() = 0;
    virtual void wake() = 0;
    /// What the router has told all hosts, by NAT-PMP or PCP.
    virtual void announced(ByteView) {}

    virtual std::string_view protocol() const = 0;
    virtual Phase phase() const = 0;
    virtual NatTime nextWake() const = 0;
    /// Of the router, as far as it has told it; 0 where it has not, or has none. Host byte order.
    virtual std::uint32_t externalAddress() const = 0;
    /// In Phase::Mapped.
    virtual const PortGrant& grant() const = 0;
    /// Why nothing is mapped (any more), and in words, where that was not by `release`.
    virtual NatFailure failure() const = 0;
    virtual const std::string& lastWord() const = 0;
    /// What it will take to withdraw what `ask` may map.
    virtual MappingRecord record() const = 0;
    /// Over, and the router has confirmed that nothing is left, or nothing was asked.
    virtual bool withdrawn() const = 0;
};

}  // namespace zelvo::platform
