#include "platform/linux/relay/RelayHost.h"

#include <algorithm>
#include <utility>

#include "platform/linux/base/Debug.h"

namespace zelvo::platform {

namespace {

using namespace std::chrono_literals;

constexpr auto ConnectWithin = 10s;
constexpr auto AnswerWithin = 20s;
/// A relay says something each 45 s.
constexpr auto LongestSilence = 100s;
/// From the relay's word to the moment that a viewer's bytes can go on.
constexpr auto ComeWithin = 30s;
constexpr std::size_t MostCallers = 32;

/// What a head is followed by; the head alone is left in `bytes`. None while there is no whole one.
std::optional<std::string> takeRest(std::string& bytes) {
    const auto length = relay::headLength(bytes);
    if (length == 0 || length == bytes.npos)
        return std::nullopt;
    auto rest = bytes.substr(length);
    bytes.resize(length);
    return rest;
}

}  // namespace

RelayHost::RelayHost(EventLoop& loop, const std::string& certificateFile, Told told)
    : loop_(loop), told_(std::move(told)), dialer_(loop, certificateFile) {}

void RelayHost::enlist(int round, Place place) {
    registration_ = std::make_unique<Registration>();
    endsRegistration_.reset();
    registration_->round = round;
    registration_->until = EventLoop::Clock::now() + AnswerWithin;
    const auto relay = place.relay;
    registration_->place = std::move(place);
    dialer_.dial(relay, ConnectWithin, [this, round](TlsDialer::Outcome outcome) {
        registrationBegins(round, std::move(outcome));
    });
}

void RelayHost::resign(int round) {
    if (registration_ && registration_->round == round)
        leave();
    // They came by a way that is closed now. `tick` lets them go.
    for (auto& [viewer, caller] : callers_)
        caller.isOver = caller.isOver || (!caller.bridge && caller.round <= round);
}

void RelayHost::registrationBegins(int round, TlsDialer::Outcome outcome) {
    if (!registration_ || registration_->round != round)
        return;
    if (!outcome.connection) {
        debug("relay", "no connection, code " + std::to_string(outcome.code));
        return endRegistration(0s);
    }
    const auto& place = registration_->place;
    registration_->talk = std::make_unique<RelayTalk>(
        loop_, std::move(outcome.connection),
        textOf(relay::HostRequest{place.relay, place.ticket, place.lease}),
        RelayTalk::Handlers{.heard = [this](auto bytes) { return hearRelay(bytes); },
                            .ended = [this] { endRegistration(0s); }});
}

bool RelayHost::hearRelay(std::string_view bytes) {
    auto& registration = *registration_;
    if (!registration.isIn) {
        registration.head += bytes;
        if (relay::headLength(registration.head) == 0)
            return true;
        return hearReply();
    }
    const bool goesOn =
        registration.lines.receive(bytes, [this](const auto& line) { return hearLine(line); });
    if (!goesOn)
        endRegistration(0s);
    return goesOn;
}

bool RelayHost::hearReply() {
    auto& registration = *registration_;
    const auto rest = takeRest(registration.head);
    const auto reply = rest ? relay::readReply(registration.head) : std::nullopt;
    if (!reply || reply->status != 101 || reply->number == 0) {
        debug("relay", "refused with status " + std::to_string(reply ? reply->status : 0));
        endRegistration(reply ? reply->retryAfter : 0s);
        return false;
    }
    registration.isIn = true;
    registration.until = EventLoop::Clock::now() + LongestSilence;
    debug("relay", "registered");
    told_.registered(registration.round, reply->number, reply->lease);
    return rest->empty() || hearRelay(*rest);
}

bool RelayHost::hearLine(const relay::Line& line) {
    registration_->until = EventLoop::Clock::now() + LongestSilence;
    switch (line.kind) {
        case relay::Line::Kind::Ping:
            return registration_->talk->say(textOf(relay::Line{relay::Line::Kind::Pong}));
        case relay::Line::Kind::Viewer:
            comeFor(line.text, line.address);
            break;
        case relay::Line::Kind::Lease:
            told_.lease(registration_->round, line.text);
            break;
        case relay::Line::Kind::Pong:
        case relay::Line::Kind::Other:
            break;
    }
    return true;
}

void RelayHost::endRegistration(std::chrono::seconds notBefore) {
    endsRegistration_ = notBefore;
}

void RelayHost::comeFor(const std::string& token, const std::string& origin) {
    if (callers_.size() >= MostCallers)
        return;
    const int viewer = ++lastCaller_;
    callers_[viewer].round = registration_->round;
    callers_[viewer].origin = origin;
    callers_[viewer].until = EventLoop::Clock::now() + ComeWithin;
    const auto relay = registration_->place.relay;
    dialer_.dial(relay, ConnectWithin, [this, viewer, relay, token](TlsDialer::Outcome outcome) {
        const auto caller = callers_.find(viewer);
        if (caller == callers_.end())
            return;
        if (!outcome.connection) {
            caller->second.isOver = true;
            return;
        }
        caller->second.talk = std::make_unique<RelayTalk>(
            loop_, std::move(outcome.connection), textOf(relay::DialBackRequest{relay, token}),
            RelayTalk::Handlers{
                .heard = [this, viewer](auto bytes) { return hearCaller(viewer, bytes); },
                .ended = [this, viewer] { callers_.at(viewer).isOver = true; }});
    });
}

bool RelayHost::hearCaller(int viewer, std::string_view bytes) {
    auto& caller = callers_.at(viewer);
    caller.head += bytes;
    if (relay::headLength(caller.head) == 0)
        return true;
    auto rest = takeRest(caller.head);
    const auto reply = rest ? relay::readReply(caller.head) : std::nullopt;
    if (!reply || reply->status != 101) {
        caller.isOver = true;
        return false;
    }
    caller.head = std::move(*rest);
    told_.arrived(viewer, caller.origin);
    return false;
}

void RelayHost::join(int viewer, FileDescriptor socket) {
    const auto found = callers_.find(viewer);
    if (found == callers_.end() || found->second.isOver)
        return;
    auto& caller = found->second;
    if (!socket) {
        caller.isOver = true;
        return;
    }
    caller.until = Time::max();
    caller.bridge = std::make_unique<TlsBridge>(
        loop_, caller.talk->release(), std::move(caller.head), std::move(socket),
        [this, viewer] { callers_.at(viewer).isOver = true; });
}

RelayHost::Time RelayHost::nextDeadline() const {
    auto next = dialer_.nextDeadline();
    if (registration_)
        next = std::min(next, registration_->until);
    for (const auto& [viewer, caller] : callers_)
        next = std::min(next, caller.until);
    return next;
}

void RelayHost::tick(Time now) {
    dialer_.tick(now);
    std::erase_if(callers_, [now](const auto& entry) {
        return entry.second.isOver || now >= entry.second.until;
    });
    if (registration_ && now >= registration_->until)
        endRegistration(0s);
    if (const auto notBefore = std::exchange(endsRegistration_, std::nullopt);
        notBefore && registration_) {
        const int round = registration_->round;
        registration_.reset();
        debug("relay", "registration ended");
        told_.ended(round, *notBefore);
    }
}

}  // namespace zelvo::platform
