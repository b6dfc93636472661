#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "platform/linux/nat/base/NatNetwork.h"
#include "platform/linux/nat/base/RouterMapping.h"
#include "platform/linux/nat/port_control/PortControlWire.h"
#include "platform/linux/nat/port_control/PortLane.h"

namespace zelvo::platform {

/// A mapping by NAT-PMP or PCP, which differ in their packets alone. TCP decides the external port
/// and the outcome; UDP follows onto the same port where the router lets it.
class PortControlMapping final : public RouterMapping, private DatagramReceiver {
  public:
    using MakeWire = std::function<std::unique_ptr<PortControlWire>(std::uint32_t localAddress)>;

    /// Sends the first probe, from the local address.
    PortControlMapping(NatNetwork& network, const Ipv4Endpoint& router, std::uint32_t localAddress,
                       const PortWish& wish, const MakeWire& makeWire);

    /// Withdraws right away what was mapped by somebody who is no more: for mappings that a crash
    /// left behind.
    void recover();

    void ask() override;
    void release() override;
    void check() override;
    void wake() override;
    void announced(ByteView datagram) override;

    std::string_view protocol() const override { return name_; }
    Phase phase() const override { return phase_; }
    NatTime nextWake() const override;
    std::uint32_t externalAddress() const override { return externalAddress_; }
    const PortGrant& grant() const override { return grant_; }
    NatFailure failure() const override { return failure_; }
    const std::string& lastWord() const override { return lastWord_; }
    MappingRecord record() const override;
    bool withdrawn() const override;
    /// Datagrams from the router that answered nothing.
    int ignored() const { return ignored_; }

  private:
    void received(ByteView datagram) override;
    void refused() override;

    void handle(const PortControlAnswer& answer);
    void handleProbe(const PortControlAnswer& answer);
    void handleMap(PortLane& lane, const PortControlAnswer& answer);
    void checkSoon();
    void noticeEpoch(std::uint32_t epoch);

    void stepProbe(NatTime now);
    void stepLane(PortLane& lane, NatTime now);
    void laneLost(const PortLane& lane);

    void settle();
    void alignSecond();
    void fail(NatFailure failure, std::string why);
    void releaseLanes();

    PortLane* lane(Transport transport);
    PortLane& primary() { return lanes_.front(); }

    NatNetwork& network_;
    Ipv4Endpoint router_;
    PortWish wish_;
    std::unique_ptr<DatagramPort> port_;
    std::unique_ptr<PortControlWire> wire_;
    std::string name_;
    Phase phase_ = Phase::Probing;
    Retry probe_;
    std::vector<PortLane> lanes_;
    std::optional<PortControlEpoch> epoch_;
    NatTime lastCheck_ = NatTime::min();
    NatTime checkAt_ = Never;
    std::uint32_t externalAddress_ = 0;
    /// How long the first answer waits for the second transport.
    NatTime settleAt_ = Never;
    PortGrant grant_;
    NatFailure failure_ = NatFailure::Silent;
    std::string lastWord_;
    /// Something is left, and there was no way to say so to the router.
    bool cutOff_ = false;
    int ignored_ = 0;
};

}  // namespace zelvo::platform
