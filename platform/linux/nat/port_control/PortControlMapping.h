#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "platform/linux/nat/base/NatNetwork.h"
#include "platform/linux/nat/base/RouterMapping.h"
#include "platform/linux/nat/port_control/PortControlWire.h"

namespace zelvo::platform {

/// A mapping by NAT-PMP or PCP, which differ in their packets alone. TCP decides the external port
/// and the outcome; UDP follows onto the same port where the router lets it.
class PortControlMapping final : public RouterMapping, private DatagramReceiver {
  public:
    using MakeWire = std::function<std::unique_ptr<PortControlWire>(std::uint32_t localAddress)>;

    /// Sends the first probe.
    PortControlMapping(NatNetwork& network, const Ipv4Endpoint& router, const PortWish& wish,
                       const MakeWire& makeWire);

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
    const PortGrant& grant() const override { return grant_; }
    NatFailure failure() const override { return failure_; }
    const std::string& lastWord() const override { return lastWord_; }
    MappingRecord record() const override;
    bool withdrawn() const override { return phase_ == Phase::Over && withdrawn_; }
    /// Datagrams from the router that answered nothing.
    int ignored() const { return ignored_; }

  private:
    struct Lane {
        enum class State : std::uint8_t { Idle, Asking, Held, Deleting, Out };

        Transport transport;
        State state = State::Idle;
        /// The wish until it is granted, then what was granted.
        std::uint16_t port = 0;
        Retry retry{};
        NatTime renewAt = Never;
        NatTime expiresAt = Never;
        std::chrono::seconds lifetime{0};
        /// The port that a UDP lane has already been asked for a second time.
        std::uint16_t movedTo = 0;
        bool askAgain = false;

        bool isOpen() const { return state != State::Idle && state != State::Out; }
        NatTime nextWake() const;
    };

    void received(ByteView datagram) override;
    void refused() override;

    void handle(const PortControlAnswer& answer);
    void handleProbe(const PortControlAnswer& answer);
    void handleMap(Lane& lane, const PortControlAnswer& answer);
    void refuseLane(Lane& lane, NatFailure failure, const std::string& why);
    void checkSoon();
    void noticeEpoch(std::uint32_t epoch);

    void stepProbe(NatTime now);
    void stepLane(Lane& lane, NatTime now);
    void sendAsk(Lane& lane, NatTime now);
    void beginDelete(Lane& lane, NatTime now);
    void endDelete(Lane& lane);

    void settle();
    void alignSecond();
    void fail(NatFailure failure, std::string why);
    void releaseLanes();

    Lane* lane(Transport transport);
    Lane& primary() { return lanes_.front(); }

    NatNetwork& network_;
    Ipv4Endpoint router_;
    PortWish wish_;
    std::unique_ptr<DatagramPort> port_;
    std::unique_ptr<PortControlWire> wire_;
    std::string name_;
    Phase phase_ = Phase::Probing;
    Retry probe_;
    std::vector<Lane> lanes_;
    std::optional<PortControlEpoch> epoch_;
    NatTime lastCheck_ = NatTime::min();
    NatTime checkAt_ = Never;
    std::uint32_t externalAddress_ = 0;
    /// How long the first answer waits for the second transport.
    NatTime settleAt_ = Never;
    PortGrant grant_;
    NatFailure failure_ = NatFailure::Silent;
    std::string lastWord_;
    bool withdrawn_ = true;
    int ignored_ = 0;
};

}  // namespace zelvo::platform
