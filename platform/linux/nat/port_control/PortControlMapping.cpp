#include "platform/linux/nat/port_control/PortControlMapping.h"

#include <utility>

#include "platform/linux/nat/codec/NatPmpCodec.h"
#include "platform/linux/nat/codec/PcpCodec.h"

namespace zelvo::platform {

namespace {

using namespace std::chrono_literals;

/// A withdrawal is sent twice and over after a second, answered or not.
constexpr RetrySchedule WithdrawalSchedule{500ms, 2, 500ms};
/// The UDP half may hold up the first answer for so long: what counts is TCP.
constexpr auto SecondTransportGrace = 10ms;
/// RFC 6887 11.2.1, and wise for NAT-PMP as well: a router that grants a second is asked no more
/// often.
constexpr std::chrono::milliseconds ShortestPause = 4s;
/// A router that refuses for the moment and does not say for how long.
constexpr std::chrono::milliseconds PauseAfterRefusal = 30s;
/// So much lies between two checks that the router's own words cause: there are routers whose epoch
/// leaps with every answer.
constexpr auto CheckPause = 5s;

}  // namespace

NatTime PortControlMapping::Lane::nextWake() const {
    return state == State::Held ? std::min({retry.isOpen() ? retry.next() : renewAt, expiresAt})
                                : retry.next();
}

PortControlMapping::PortControlMapping(NatNetwork& network, const Ipv4Endpoint& router,
                                       const PortWish& wish, const MakeWire& makeWire)
    : network_(network), router_(router), wish_(wish), port_(network.connect(router, *this)) {
    wire_ = makeWire(port_ ? port_->localAddress() : 0);
    name_ = wire_->name();
    if (wish.tcp) {
        lanes_.push_back(Lane{.transport = Transport::Tcp, .port = wish.externalPort});
    }
    if (wish.udp) {
        lanes_.push_back(Lane{.transport = Transport::Udp, .port = wish.externalPort});
    }
    if (port_) {
        probe_.begin(network_.now());
    } else {
        fail(NatFailure::Silent, "there is no way to the router");
    }
}

void PortControlMapping::recover() {
    if (phase_ != Phase::Probing) {
        // Nobody could be asked.
        withdrawn_ = false;
        return;
    }
    for (Lane& lane : lanes_) {
        lane.state = Lane::State::Held;
    }
    release();
}

void PortControlMapping::ask() {
    phase_ = Phase::Asking;
    for (Lane& lane : lanes_) {
        lane.state = Lane::State::Asking;
        lane.retry.begin(network_.now());
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
    for (Lane& lane : lanes_) {
        if (lane.state == Lane::State::Held) {
            lane.retry.begin(now);
        }
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
    for (Lane& lane : lanes_) {
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
    for (const Lane& lane : lanes_) {
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
        withdrawn_ = false;
        for (Lane& lane : lanes_) {
            lane.state = Lane::State::Out;
            lane.retry.end();
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
    } else if (Lane* lane = this->lane(answer.transport)) {
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

void PortControlMapping::handleMap(Lane& lane, const PortControlAnswer& answer) {
    const NatTime now = network_.now();
    const bool granted = answer.refusal.empty() && answer.lifetime.count() != 0;
    const bool asked = lane.state == Lane::State::Asking ||
                       (lane.state == Lane::State::Held && lane.retry.isOpen());
    if (lane.state == Lane::State::Deleting && !granted) {
        // Routers refuse to withdraw what is not there, which after a second try means that the
        // first one has arrived.
        withdrawn_ = withdrawn_ && (answer.refusal.empty() || lane.retry.sent() > 1);
        endDelete(lane);
    } else if (asked && answer.mayPass && lane.state == Lane::State::Held) {
        const auto pause = answer.lifetime.count() == 0 ? PauseAfterRefusal : answer.lifetime;
        lane.retry.end();
        lane.renewAt = now + std::max(std::min(pause, (lane.expiresAt - now) / 2), ShortestPause);
    } else if (asked && !answer.refusal.empty()) {
        refuseLane(lane, answer.failure, answer.refusal);
    } else if (asked && granted && answer.externalPort == 0) {
        refuseLane(lane, NatFailure::Refused, "it grants no port");
    } else if (asked && granted) {
        lane.state = Lane::State::Held;
        lane.retry.end();
        lane.port = answer.externalPort;
        lane.lifetime = std::min(answer.lifetime, wish_.lifetime);
        lane.expiresAt = now + lane.lifetime;
        lane.renewAt = now + std::min(std::max(wire_->renewAfter(lane.lifetime), ShortestPause),
                                      std::chrono::milliseconds(lane.lifetime) * 3 / 4);
        if (answer.externalAddress) {
            externalAddress_ = *answer.externalAddress;
        }
        alignSecond();
    } else {
        // Late, or said twice.
        ++ignored_;
    }
}

void PortControlMapping::refuseLane(Lane& lane, NatFailure failure, const std::string& why) {
    if (lane.state == Lane::State::Held) {
        // It has been granted, and a router that does not renew it may keep it all the same.
        beginDelete(lane, network_.now());
    } else {
        lane.state = Lane::State::Out;
        lane.retry.end();
    }
    if (&lane == &primary()) {
        fail(failure, why);
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

void PortControlMapping::stepLane(Lane& lane, NatTime now) {
    if (lane.state == Lane::State::Held) {
        if (lane.expiresAt <= now) {
            refuseLane(lane, NatFailure::Silent, "the lease ran out, the router does not answer");
            return;
        }
        if (!lane.retry.isOpen() && lane.renewAt <= now) {
            lane.retry.begin(now);
            if (&lane == &primary() && wire_->addressComesWithProbe() && !probe_.isOpen()) {
                probe_.begin(now);
                stepProbe(now);
            }
        }
    }
    if (lane.retry.next() > now) {
        return;
    }
    if (lane.state == Lane::State::Deleting) {
        if (lane.retry.step(now, WithdrawalSchedule)) {
            port_->send(wire_->map(lane.transport, 0, 0s));
        } else {
            withdrawn_ = false;
            endDelete(lane);
        }
    } else {
        sendAsk(lane, now);
    }
}

void PortControlMapping::sendAsk(Lane& lane, NatTime now) {
    if (lane.retry.step(now, wire_->schedule())) {
        port_->send(wire_->map(lane.transport, lane.port, wish_.lifetime));
    } else if (lane.state == Lane::State::Held) {
        lane.renewAt = now + std::max((lane.expiresAt - now) / 2, ShortestPause);
    } else {
        refuseLane(lane, NatFailure::Silent, "the router does not answer");
    }
}

void PortControlMapping::beginDelete(Lane& lane, NatTime now) {
    lane.state = Lane::State::Deleting;
    lane.retry.begin(now);
}

void PortControlMapping::endDelete(Lane& lane) {
    lane.retry.end();
    lane.state = Lane::State::Out;
    if (lane.askAgain) {
        lane.askAgain = false;
        lane.state = Lane::State::Asking;
        lane.port = primary().port;
        lane.retry.begin(network_.now());
    }
}

void PortControlMapping::settle() {
    if (phase_ == Phase::Releasing &&
        std::none_of(lanes_.begin(), lanes_.end(), [](const Lane& l) { return l.isOpen(); })) {
        phase_ = Phase::Over;
    }
    if ((phase_ != Phase::Asking && phase_ != Phase::Mapped) ||
        primary().state != Lane::State::Held) {
        return;
    }
    const NatTime now = network_.now();
    const Lane* second = lanes_.size() > 1 ? &lanes_[1] : nullptr;
    const bool secondHeld =
        second && second->state == Lane::State::Held && second->port == primary().port;
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
    grant_.externalPort = primary().port;
    grant_.lifetime = primary().lifetime;
    grant_.tcp = primary().transport == Transport::Tcp;
    grant_.udp = primary().transport == Transport::Udp || secondHeld;
}

void PortControlMapping::alignSecond() {
    if (lanes_.size() < 2 || primary().state != Lane::State::Held) {
        return;
    }
    Lane& second = lanes_[1];
    if (second.state != Lane::State::Held || second.port == primary().port) {
        return;
    }
    // A router answers for a port that it has mapped with what it has mapped (RFC 6886 3.3), so the
    // one that does not fit goes first.
    second.askAgain = second.movedTo != primary().port;
    second.movedTo = primary().port;
    beginDelete(second, network_.now());
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
    // What was not withdrawn for certain when the ports were brought together gets another chance.
    const bool perhapsLeft = !std::exchange(withdrawn_, true);
    for (Lane& lane : lanes_) {
        if (lane.isOpen() || perhapsLeft) {
            lane.askAgain = false;
            beginDelete(lane, network_.now());
        } else {
            lane.state = Lane::State::Out;
            lane.retry.end();
        }
    }
}

PortControlMapping::Lane* PortControlMapping::lane(Transport transport) {
    for (Lane& lane : lanes_) {
        if (lane.transport == transport) {
            return &lane;
        }
    }
    return nullptr;
}

}  // namespace zelvo::platform
