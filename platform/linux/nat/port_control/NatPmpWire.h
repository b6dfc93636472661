#pragma once

#include "platform/linux/nat/port_control/PortControlWire.h"

namespace zelvo::platform {

/// RFC 6886.
class NatPmpWire final : public PortControlWire {
  public:
    explicit NatPmpWire(std::uint16_t internalPort) : internalPort_(internalPort) {}

    std::string_view name() const override { return "NAT-PMP"; }
    Bytes probe() const override;
    Bytes map(Transport transport, std::uint16_t externalPort,
              std::chrono::seconds lifetime) const override;
    std::optional<PortControlAnswer> read(ByteView datagram) const override;
    bool addressComesWithProbe() const override { return true; }
    bool isContinuous(const PortControlEpoch& last, const PortControlEpoch& now) const override;
    std::chrono::milliseconds renewAfter(std::chrono::milliseconds left) override;
    RetrySchedule schedule() const override;

  private:
    std::uint16_t internalPort_;
};

}  // namespace zelvo::platform
