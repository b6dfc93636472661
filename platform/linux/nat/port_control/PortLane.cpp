#include "platform/linux/nat/port_control/PortLane.h"

#include <utility>

namespace zelvo::platform {

namespace {

using namespace std::chrono_literals;

/// A withdrawal is sent twice and over after a second, answered or not.
constexpr RetrySchedule WithdrawalSchedule{500ms, 2, 500ms};
/// RFC 6887 11.2.1, and wise for NAT-PMP as well: so much lies between two renewals, unless the
/// lease is shorter still.
constexpr std::chrono::milliseconds ShortestPause = 4s;
/// A router that refuses for the moment and does not say for how long.
constexpr std::chrono::milliseconds PauseAfterRefusal = 30s;

}  // namespace

void PortLane::ask(NatTime now) {
    state_ = State::Asking;
    retry_.begin(now);
}

void PortLane::renew(NatTime now) {
    if (state_ == State::Held) {
        retry_.begin(now);
    }
}

void PortLane::withdraw(NatTime now) {
    // What was not withdrawn for certain gets another chance.
    if (isOpen() || !confirmed_) {
        state_ = State::Deleting;
        askAgain_ = false;
        confirmed_ = true;
        retry_.begin(now);
    } else {
        leave();
    }
}

void PortLane::moveTo(std::uint16_t externalPort, NatTime now) {
    withdraw(now);
    askAgain_ = std::exchange(movedTo_, externalPort) != externalPort;
}

void PortLane::leave() {
    confirmed_ = confirmed_ && state_ != State::Deleting;
    state_ = State::Out;
    retry_.end();
}

PortLane::Event PortLane::hear(const PortControlAnswer& answer, NatTime now) {
    const bool granted = answer.refusal.empty() && answer.lifetime.count() != 0;
    const bool asked = state_ == State::Asking || (state_ == State::Held && retry_.isOpen());
    if (state_ == State::Deleting && !granted) {
        // Routers refuse to withdraw what is not there, or what is no longer ours. The second try
        // tells that from a refusal of the moment.
        if (!answer.refusal.empty() && retry_.sent() == 1) {
            return Event::None;
        }
        endWithdrawal(now);
        return Event::None;
    }
    if (!asked || (answer.refusal.empty() && !granted)) {
        // Late, or said twice.
        return Event::Ignored;
    }
    if (answer.mayPass && state_ == State::Held) {
        const auto pause = answer.lifetime.count() == 0 ? PauseAfterRefusal : answer.lifetime;
        retry_.end();
        renewAt_ = now + std::max(std::min(pause, (expiresAt_ - now) / 2), ShortestPause);
        return Event::None;
    }
    if (!granted) {
        return lose(answer.failure, answer.refusal, now);
    }
    if (answer.externalPort == 0) {
        return lose(NatFailure::Refused, "it grants no port", now);
    }
    return hold(answer, now);
}

PortLane::Event PortLane::hold(const PortControlAnswer& answer, NatTime now) {
    state_ = State::Held;
    retry_.end();
    externalPort_ = answer.externalPort;
    lifetime_ = std::min(answer.lifetime, wished_);
    expiresAt_ = now + lifetime_;
    renewAt_ = now + std::min(std::max(wire_->renewAfter(lifetime_), ShortestPause),
                              std::chrono::milliseconds(lifetime_) * 3 / 4);
    return Event::Granted;
}

PortLane::Event PortLane::lose(NatFailure failure, std::string why, NatTime now) {
    failure_ = failure;
    lastWord_ = std::move(why);
    if (state_ == State::Held) {
        // It has been granted, and a router that does not renew it may keep it all the same.
        withdraw(now);
    } else {
        leave();
    }
    return Event::Lost;
}

PortLane::Event PortLane::step(NatTime now) {
    Event event = Event::None;
    if (state_ == State::Held) {
        if (expiresAt_ <= now) {
            return lose(NatFailure::Silent, "the lease ran out, the router does not answer", now);
        }
        if (!retry_.isOpen() && renewAt_ <= now) {
            retry_.begin(now);
            event = Event::Renewing;
        }
    }
    if (retry_.next() > now) {
        return event;
    }
    if (state_ != State::Deleting) {
        const Event sent = sendAsk(now);
        return sent == Event::None ? event : sent;
    }
    if (retry_.step(now, WithdrawalSchedule)) {
        port_->send(wire_->map(transport_, 0, 0s));
    } else {
        confirmed_ = false;
        endWithdrawal(now);
    }
    return event;
}

PortLane::Event PortLane::sendAsk(NatTime now) {
    if (retry_.step(now, wire_->schedule())) {
        port_->send(wire_->map(transport_, externalPort_, wished_));
    } else if (state_ == State::Held) {
        renewAt_ = now + std::max((expiresAt_ - now) / 2, ShortestPause);
    } else {
        return lose(NatFailure::Silent, "the router does not answer", now);
    }
    return Event::None;
}

void PortLane::endWithdrawal(NatTime now) {
    retry_.end();
    state_ = State::Out;
    if (std::exchange(askAgain_, false)) {
        externalPort_ = movedTo_;
        ask(now);
    }
}

NatTime PortLane::nextWake() const {
    return state_ == State::Held ? std::min(retry_.isOpen() ? retry_.next() : renewAt_, expiresAt_)
                                 : retry_.next();
}

}  // namespace zelvo::platform
