#include "platform/linux/nat/port_control/PortControlMapping.h"

#include <utility>

#include "platform/linux/nat/codec/NatPmpCodec.h"
#include "platform/linux/nat/codec/PcpCodec.h"

namespace zelvo::platform {

namespace {

using namespace std::chrono_literals;

/// The UDP half may hold up the first answer for so long: what counts is TCP.
constexpr auto SecondTransportGrace = 10ms;
/// So much lies between two checks that the router's own words cause: there are routers whose epoch
/// leaps with every answer.
constexpr auto CheckPause = 5s;

}  // namespace

PortControlMapping::PortControlMapping(NatNetwork& network, const Ipv4Endpoint& router,
                                       std::uint32_t localAddress, const PortWish& wish,
                                       const MakeWire& makeWire)
    : network_(network),
      router_(router),
      wish_(wish),
      port_(network.connect(router, localAddress, *this)) {
    wire_ = makeWire(port_ ? port_->localAddress() : 0);
    name_ = wire_->name();
    if (wish.tcp) {
        lanes_.emplace_back(*wire_, port_.get(), Transport::Tcp, wish);
    }
    if (wish.udp) {
        lanes_.emplace_back(*wire_, port_.get(), Transport::Udp, wish);
    }
    if (port_) {
        probe_.begin(network_.now());
    } else {
        fail(NatFailure::Silent, "there is no way to the router");
    }
}

void PortControlMapping::recover() {
    if (phase_ != Phase::Probing) {
        cutOff_ = true;
        return;
    }
    for (PortLane& lane : lanes_) {
        lane.adopt();
    }
    release();
}

void PortControlMapping::ask() {
    phase_ = Phase::Asking;
    for (PortLane& lane : lanes_) {
        lane.ask(network_.now());
    }
    wake();
}

void PortControlMapping::release() {
    if (phase_ == Phase::Releasing || phase_ == Phase::Over) {
        return;
    }
    releaseLanes();
    wake();
}

void PortControlMapping::check() {
    const NatTime now = network_.now();
    if (phase_ != Phase::Asking && phase_ != Phase::Mapped) {
        return;
    }
    lastCheck_ = now;
    checkAt_ = Never;
    for (PortLane& lane : lanes_) {
        lane.renew(now);
    }
    if (wire_->addressComesWithProbe()) {
        probe_.begin(now);
    }
}

void PortControlMapping::wake() {
    const NatTime now = network_.now();
    if (checkAt_ <= now) {
        check();
    }
    if (probe_.next() <= now) {
        stepProbe(now);
    }
    for (PortLane& lane : lanes_) {
        stepLane(lane, now);
    }
    settle();
}

void PortControlMapping::announced(ByteView datagram) {
    if (phase_ != Phase::Mapped) {
        return;
    }
    const auto answer = wire_->read(datagram);
    if (answer && answer->kind == PortControlAnswer::Kind::Probe) {
        handle(*answer);
        settle();
    } else if (decodePcpResponse(datagram) || decodeNatPmpResponse(datagram)) {
        // A router that speaks both may announce itself in the other one alone.
        checkSoon();
    }
}

NatTime PortControlMapping::nextWake() const {
    NatTime next = std::min({probe_.next(), checkAt_, phase_ == Phase::Asking ? settleAt_ : Never});
    for (const PortLane& lane : lanes_) {
        next = std::min(next, lane.nextWake());
    }
    return next;
}

MappingRecord PortControlMapping::record() const {
    MappingRecord record;
    record.protocol = name_;
    record.router = router_;
    record.localAddress = port_ ? port_->localAddress() : 0;
    record.internalPort = wish_.internalPort;
    record.externalPorts = {wish_.externalPort};
    record.tcp = wish_.tcp;
    record.udp = wish_.udp;
    record.nonces = wire_->nonces();
    return record;
}

void PortControlMapping::received(ByteView datagram) {
    const auto answer = wire_->read(datagram);
    if (answer && phase_ != Phase::Over) {
        handle(*answer);
        settle();
    } else {
        ++ignored_;
    }
}

void PortControlMapping::refused() {
    if (phase_ == Phase::Probing) {
        fail(NatFailure::Unsupported, "the router has no such service");
    } else if (phase_ == Phase::Releasing) {
        for (PortLane& lane : lanes_) {
            lane.leave();
        }
    }
    settle();
}

void PortControlMapping::handle(const PortControlAnswer& answer) {
    using Kind = PortControlAnswer::Kind;
    if (answer.epoch) {
        noticeEpoch(*answer.epoch);
    }
    if (answer.kind == Kind::WrongVersion) {
        if (phase_ != Phase::Mapped) {
            fail(NatFailure::Unsupported, "the router does not speak it");
        }
    } else if (answer.kind == Kind::Probe) {
        handleProbe(answer);
    } else if (PortLane* lane = this->lane(answer.transport)) {
        handleMap(*lane, answer);
    }
}

void PortControlMapping::handleProbe(const PortControlAnswer& answer) {
    probe_.end();
    if (!answer.refusal.empty()) {
        if (phase_ == Phase::Probing) {
            fail(answer.failure, answer.refusal);
        }
        return;
    }
    if (answer.externalAddress) {
        externalAddress_ = *answer.externalAddress;
    }
    if (phase_ == Phase::Probing) {
        phase_ = Phase::Ready;
    }
}

void PortControlMapping::handleMap(PortLane& lane, const PortControlAnswer& answer) {
    switch (lane.hear(answer, network_.now())) {
        case PortLane::Event::Ignored:
            ++ignored_;
            break;
        case PortLane::Event::Granted:
            if (answer.externalAddress) {
                externalAddress_ = *answer.externalAddress;
            }
            alignSecond();
            break;
        case PortLane::Event::Lost:
            laneLost(lane);
            break;
        default:
            break;
    }
}

void PortControlMapping::laneLost(const PortLane& lane) {
    if (&lane == &primary()) {
        fail(lane.failure(), lane.lastWord());
    }
}

void PortControlMapping::checkSoon() {
    if (phase_ == Phase::Asking || phase_ == Phase::Mapped) {
        checkAt_ = std::min(checkAt_, std::max(network_.now(), lastCheck_ + CheckPause));
    }
}

void PortControlMapping::noticeEpoch(std::uint32_t epoch) {
    const PortControlEpoch heard{epoch, network_.now()};
    if (epoch_ && !wire_->isContinuous(*epoch_, heard)) {
        checkSoon();
    }
    epoch_ = heard;
}

void PortControlMapping::stepProbe(NatTime now) {
    if (probe_.step(now, wire_->schedule())) {
        port_->send(wire_->probe());
    } else if (phase_ == Phase::Probing) {
        fail(NatFailure::Silent, "the router does not answer");
    }
}

void PortControlMapping::stepLane(PortLane& lane, NatTime now) {
    const auto event = lane.step(now);
    if (event == PortLane::Event::Lost) {
        laneLost(lane);
    } else if (event == PortLane::Event::Renewing && &lane == &primary() &&
               wire_->addressComesWithProbe() && !probe_.isOpen()) {
        probe_.begin(now);
        stepProbe(now);
    }
}

void PortControlMapping::settle() {
    if (phase_ == Phase::Releasing &&
        std::none_of(lanes_.begin(), lanes_.end(), [](const auto& l) { return l.isOpen(); })) {
        phase_ = Phase::Over;
    }
    if ((phase_ != Phase::Asking && phase_ != Phase::Mapped) || !primary().isHeld()) {
        return;
    }
    const NatTime now = network_.now();
    const PortLane* second = lanes_.size() > 1 ? &lanes_[1] : nullptr;
    const bool secondHeld =
        second && second->isHeld() && second->externalPort() == primary().externalPort();
    if (phase_ == Phase::Asking && second && !secondHeld && second->isOpen()) {
        if (settleAt_ == Never) {
            settleAt_ = now + SecondTransportGrace;
        }
        if (now < settleAt_) {
            return;
        }
    }
    phase_ = Phase::Mapped;
    grant_.externalAddress = externalAddress_;
    grant_.externalPort = primary().externalPort();
    grant_.lifetime = primary().lifetime();
    grant_.tcp = primary().transport() == Transport::Tcp;
    grant_.udp = primary().transport() == Transport::Udp || secondHeld;
}

void PortControlMapping::alignSecond() {
    // A router answers for a port that it has mapped with what it has mapped (RFC 6886 3.3), so the
    // one that does not fit goes first.
    if (lanes_.size() > 1 && primary().isHeld() && lanes_[1].isHeld() &&
        lanes_[1].externalPort() != primary().externalPort()) {
        lanes_[1].moveTo(primary().externalPort(), network_.now());
    }
}

void PortControlMapping::fail(NatFailure failure, std::string why) {
    if (phase_ == Phase::Releasing || phase_ == Phase::Over) {
        return;
    }
    failure_ = failure;
    lastWord_ = std::move(why);
    releaseLanes();
    settle();
}

void PortControlMapping::releaseLanes() {
    probe_.end();
    checkAt_ = Never;
    phase_ = Phase::Releasing;
    for (PortLane& lane : lanes_) {
        lane.withdraw(network_.now());
    }
}

bool PortControlMapping::withdrawn() const {
    return phase_ == Phase::Over && !cutOff_ &&
           std::all_of(lanes_.begin(), lanes_.end(), [](const auto& l) { return l.isConfirmed(); });
}

PortLane* PortControlMapping::lane(Transport transport) {
    for (PortLane& lane : lanes_) {
        if (lane.transport() == transport) {
            return &lane;
        }
    }
    return nullptr;
}

}  // namespace zelvo::platform
