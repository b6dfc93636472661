#pragma once

#include <random>

#include "platform/linux/nat/codec/PcpCodec.h"
#include "platform/linux/nat/port_control/PortControlWire.h"

namespace zelvo::platform {

/// RFC 6887.
class PcpWire final : public PortControlWire {
  public:
    PcpWire(std::uint16_t internalPort, std::uint32_t clientAddress, const PcpNonces& nonces)
        : internalPort_(internalPort), clientAddress_(clientAddress), nonces_(nonces) {}

    /// Fresh ones, from the system's generator.
    static PcpNonces makeNonces();

    std::string_view name() const override { return "PCP"; }
    Bytes probe() const override;
    Bytes map(Transport transport, std::uint16_t externalPort,
              std::chrono::seconds lifetime) const override;
    std::optional<PortControlAnswer> read(ByteView datagram) const override;
    bool addressComesWithProbe() const override { return false; }
    bool isContinuous(const PortControlEpoch& last, const PortControlEpoch& now) const override;
    std::chrono::milliseconds renewAfter(std::chrono::milliseconds left) override;
    RetrySchedule schedule() const override;

    PcpNonces nonces() const override { return nonces_; }

  private:
    const PcpNonce& nonce(Transport transport) const {
        return transport == Transport::Tcp ? nonces_.tcp : nonces_.udp;
    }

    std::uint16_t internalPort_;
    std::uint32_t clientAddress_;
    PcpNonces nonces_;
    std::minstd_rand spread_{std::random_device{}()};
};

}  // namespace zelvo::platform
