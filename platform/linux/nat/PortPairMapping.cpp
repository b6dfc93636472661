#include "platform/linux/nat/PortPairMapping.h"

#include <arpa/inet.h>

#include <algorithm>
#include <utility>

#include "platform/linux/base/Debug.h"
#include "platform/linux/nat/ExternalAddress.h"

namespace zelvo::platform {

namespace {

using namespace std::chrono_literals;

/// Nobody waits longer than this for a first outcome.
constexpr auto Patience = 10s;
/// How long one protocol has the router for itself after it has asked.
constexpr auto Turn = 1s;
constexpr auto FirstRetryPause = 30s;
constexpr auto LongestRetryPause = 300s;
/// So much lies between two attempts that the router's announcements cause.
constexpr auto AnnouncedPause = 5s;

using Phase = RouterMapping::Phase;

std::string transportText(const PortGrant& grant) {
    return grant.tcp && grant.udp ? "TCP and UDP" : grant.tcp ? "TCP" : "UDP";
}

/// The more an answer says, the more it counts: what keeps the router from mapping above a refusal,
/// that above ignorance, all above silence.
std::int32_t moreTelling(std::int32_t code, NatFailure failure) {
    if (failure == NatFailure::Disconnected || code == NatErrorTransient) {
        return NatErrorTransient;
    }
    if (failure == NatFailure::Refused || code == NatErrorPortMappingDisabled) {
        return NatErrorPortMappingDisabled;
    }
    if (failure == NatFailure::Unsupported || code == NatErrorPortMappingUnsupported) {
        return NatErrorPortMappingUnsupported;
    }
    return NatErrorTimeout;
}

bool isEnding(const RouterMapping& mapping) {
    return mapping.phase() == Phase::Releasing || mapping.phase() == Phase::Over;
}

/// 0 for an address at which nobody can come in.
std::uint32_t externalAddress(const RouterMapping& mapping) {
    const std::uint32_t address = mapping.grant().externalAddress;
    return isNoExternalAddress(address, mapping.record().router.address) ? 0 : address;
}

}  // namespace

PortPairMapping::PortPairMapping(const NatNetwork& network, Log& log, MappingJournal& journal,
                                 const PortWish& wish, NatTime asked, Make make, Reply reply)
    : network_(network),
      log_(log),
      journal_(journal),
      wish_(wish),
      make_(std::move(make)),
      reply_(std::move(reply)),
      deadline_(asked + Patience),
      retryAt_(network.now()),
      retryPause_(FirstRetryPause) {}

void PortPairMapping::advance() {
    const NatTime now = network_.now();
    const auto wakeDue = [now](const Candidate& candidate) {
        if (candidate.mapping && candidate.mapping->nextWake() <= now) {
            candidate.mapping->wake();
        }
    };
    std::for_each(candidates_.begin(), candidates_.end(), wakeDue);
    std::for_each(leaving_.begin(), leaving_.end(), wakeDue);
    wakeDue(winner_);
    reviewLeaving();
    if (state_ == State::Mapped) {
        reviewWinner();
    }
    if (state_ == State::Waiting && retryAt_ <= now && leaving_.empty()) {
        seek();
    }
    if (state_ == State::Seeking) {
        reviewCandidates();
    }
}

void PortPairMapping::routerChanged() {
    if (state_ == State::Closing) {
        return;
    }
    retryPause_ = FirstRetryPause;
    beginAnew(network_.now());
}

void PortPairMapping::check() {
    if (isAstray()) {
        beginAnew(network_.now());
    } else if (state_ == State::Mapped) {
        winner_.mapping->check();
    } else if (state_ == State::Seeking) {
        checkWhenMapped_ = true;
    } else if (state_ == State::Waiting) {
        retryAt_ = network_.now();
    }
}

void PortPairMapping::announced(ByteView datagram) {
    const NatTime soon = std::max(network_.now(), soughtAt_ + AnnouncedPause);
    if (isAstray()) {
        beginAnew(soon);
    } else if (state_ == State::Mapped) {
        winner_.mapping->announced(datagram);
    } else if (state_ == State::Waiting) {
        retryAt_ = std::min(retryAt_, soon);
    }
}

bool PortPairMapping::isAstray() const {
    return state_ == State::Mapped && winner_.mapping->grant().externalPort != wish_.externalPort;
}

void PortPairMapping::beginAnew(NatTime when) {
    dismissAll();
    state_ = State::Waiting;
    retryAt_ = when;
}

void PortPairMapping::close() {
    dismissAll();
    state_ = State::Closing;
}

NatTime PortPairMapping::nextWake() const {
    NatTime next = state_ == State::Waiting && leaving_.empty() ? retryAt_ : Never;
    const auto consider = [&next](const Candidate& candidate) {
        if (candidate.mapping) {
            next = std::min(next, candidate.mapping->nextWake());
        }
    };
    std::for_each(candidates_.begin(), candidates_.end(), consider);
    std::for_each(leaving_.begin(), leaving_.end(), consider);
    consider(winner_);
    if (state_ == State::Seeking) {
        next = std::min(next, deadline_);
        const bool somebodyWaits = std::any_of(
            candidates_.begin(), candidates_.end(),
            [](const Candidate& candidate) { return candidate.mapping->phase() == Phase::Ready; });
        next = somebodyWaits ? std::min(next, nextTurn_) : next;
    }
    return next;
}

void PortPairMapping::seek() {
    // Making may find out that the route has changed, and tell us.
    state_ = State::Waiting;
    auto made = make_(wish_);
    state_ = State::Seeking;
    soughtAt_ = network_.now();
    checkWhenMapped_ = false;
    failureCode_ = NatErrorNone;
    if (replied_) {
        deadline_ = network_.now() + Patience;
    }
    nextTurn_ = network_.now();
    for (auto& mapping : made) {
        candidates_.push_back({std::move(mapping)});
    }
    debug("nat", "looks for a router for port " + std::to_string(wish_.internalPort) + " with " +
                     std::to_string(candidates_.size()) + " protocols");
    if (candidates_.empty()) {
        failureCode_ = NatErrorNoRouter;
        say("there is no router");
    }
}

void PortPairMapping::reviewCandidates() {
    for (std::size_t index = 0; index < candidates_.size();) {
        RouterMapping& mapping = *candidates_[index].mapping;
        const bool mapped = mapping.phase() == Phase::Mapped;
        if (mapped && externalAddress(mapping) != 0) {
            win(index);
            return;
        }
        if (mapped || isEnding(mapping)) {
            noteFailure(mapping);
            lose(std::move(candidates_[index]));
            candidates_.erase(candidates_.begin() + static_cast<std::ptrdiff_t>(index));
        } else {
            ++index;
        }
    }
    if (network_.now() >= deadline_) {
        for (Candidate& candidate : candidates_) {
            noteFailure(*candidate.mapping);
            lose(std::move(candidate));
        }
        candidates_.clear();
    }
    if (candidates_.empty()) {
        conclude();
    } else {
        giveTurn();
    }
}

void PortPairMapping::giveTurn() {
    const NatTime now = network_.now();
    const bool somebodyAsks = std::any_of(
        candidates_.begin(), candidates_.end(),
        [](const Candidate& candidate) { return candidate.mapping->phase() == Phase::Asking; });
    if (somebodyAsks && now < nextTurn_) {
        return;
    }
    for (Candidate& candidate : candidates_) {
        if (candidate.mapping->phase() == Phase::Ready) {
            nextTurn_ = now + Turn;
            candidate.asked = true;
            debug("nat", std::string(candidate.mapping->protocol()) + " may ask");
            candidate.recordId = journal_.add(candidate.mapping->record());
            candidate.mapping->ask();
            return;
        }
    }
}

void PortPairMapping::reviewWinner() {
    if (isEnding(*winner_.mapping)) {
        say(std::string(winner_.mapping->protocol()) +
            " lost the mapping: " + winner_.mapping->lastWord());
        beginAnew(network_.now());
        return;
    }
    if (externalAddress(*winner_.mapping) != reported_.externalAddress ||
        winner_.mapping->grant().externalPort != reported_.externalPort) {
        report();
    }
}

void PortPairMapping::reviewLeaving() {
    for (std::size_t index = 0; index < leaving_.size();) {
        const Candidate& candidate = leaving_[index];
        if (candidate.mapping->phase() != Phase::Over) {
            ++index;
            continue;
        }
        if (candidate.asked) {
            say(std::string(candidate.mapping->protocol()) +
                (candidate.mapping->withdrawn()
                     ? " has withdrawn the mapping of port "
                     : ": the router has not confirmed the withdrawal of port ") +
                std::to_string(wish_.internalPort));
        }
        if (candidate.mapping->withdrawn()) {
            journal_.remove(candidate.recordId);
        } else {
            journal_.abandon(candidate.recordId);
        }
        // Two protocols of one router share one table.
        const bool mayHaveTakenOurs = candidate.withdraws;
        leaving_.erase(leaving_.begin() + static_cast<std::ptrdiff_t>(index));
        if (mayHaveTakenOurs && state_ == State::Mapped) {
            winner_.mapping->check();
        } else if (mayHaveTakenOurs && state_ == State::Seeking) {
            checkWhenMapped_ = true;
        }
    }
}

void PortPairMapping::win(std::size_t index) {
    winner_ = std::move(candidates_[index]);
    candidates_.erase(candidates_.begin() + static_cast<std::ptrdiff_t>(index));
    for (Candidate& candidate : candidates_) {
        lose(std::move(candidate));
    }
    candidates_.clear();
    state_ = State::Mapped;
    retryPause_ = FirstRetryPause;
    report();
    if (checkWhenMapped_) {
        winner_.mapping->check();
    }
}

void PortPairMapping::lose(Candidate candidate) {
    debug("nat", std::string(candidate.mapping->protocol()) + " is let go" +
                     (candidate.asked ? ", and withdraws what it asked for" : ""));
    candidate.mapping->release();
    candidate.withdraws = candidate.asked && candidate.mapping->phase() != Phase::Over;
    if (candidate.mapping->phase() != Phase::Over || candidate.asked) {
        leaving_.push_back(std::move(candidate));
    }
}

void PortPairMapping::noteFailure(const RouterMapping& mapping) {
    NatFailure failure = NatFailure::Silent;
    std::string word = "the router does not answer";
    if (isEnding(mapping)) {
        failure = mapping.failure();
        word = mapping.lastWord();
    } else if (mapping.phase() == Phase::Mapped) {
        failure = NatFailure::Disconnected;
        word = "the router has no address but " + addressText(mapping.grant().externalAddress);
    }
    failureCode_ = moreTelling(failureCode_, failure);
    say(std::string(mapping.protocol()) + ": " + word);
}

void PortPairMapping::conclude() {
    state_ = State::Waiting;
    retryAt_ = network_.now() + retryPause_;
    retryPause_ = std::min(retryPause_ * 2, std::chrono::seconds(LongestRetryPause));
    reported_ = {};
    NatPortMappingReply reply;
    reply.errorCode = failureCode_;
    reply.protocol = (wish_.tcp ? NatProtocolTcp : 0) | (wish_.udp ? NatProtocolUdp : 0);
    reply.internalPort = htons(wish_.internalPort);
    replied_ = true;
    reply_(reply);
}

void PortPairMapping::dismissAll() {
    for (Candidate& candidate : candidates_) {
        lose(std::move(candidate));
    }
    candidates_.clear();
    if (winner_.mapping) {
        lose(std::move(winner_));
    }
}

void PortPairMapping::report() {
    PortGrant grant = winner_.mapping->grant();
    grant.externalAddress = externalAddress(*winner_.mapping);
    reported_ = grant;
    if (!std::exchange(published_, true)) {
        // What others are told, so that it is asked for whenever there is a chance to have it back.
        wish_.externalPort = grant.externalPort;
    }
    say(std::string(winner_.mapping->protocol()) + " maps " + transportText(grant) + " port " +
        std::to_string(grant.externalPort) + " of " + addressText(grant.externalAddress) +
        " to port " + std::to_string(wish_.internalPort) +
        (grant.lifetime.count() == 0 ? " until it is withdrawn"
                                     : " for " + std::to_string(grant.lifetime.count()) + " s"));
    NatPortMappingReply reply;
    reply.externalAddress = htonl(grant.externalAddress);
    reply.protocol = (grant.tcp ? NatProtocolTcp : 0) | (grant.udp ? NatProtocolUdp : 0);
    reply.internalPort = htons(wish_.internalPort);
    reply.externalPort = htons(grant.externalPort);
    reply.ttl = static_cast<std::uint32_t>(grant.lifetime.count());
    const std::string explanation = explainExternalAddress(grant.externalAddress);
    if (!explanation.empty()) {
        say(explanation);
    }
    replied_ = true;
    reply_(reply);
}

void PortPairMapping::say(const std::string& text) {
    log_.line("Port mapping: " + text);
}

}  // namespace zelvo::platform
