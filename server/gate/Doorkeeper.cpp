#include "server/gate/Doorkeeper.h"

#include <algorithm>

namespace zelvo::server {

Doorkeeper::Arrival Doorkeeper::arrive(ViewerId viewer, const Address& address, Time now) {
    while (!hungUp_.empty() && now >= hungUp_.front().until)
        hungUp_.pop_front();
    std::size_t all = 0, waiting = 0, allThere = 0, waitingThere = 0;
    for (const auto& [other, caller] : callers_) {
        const bool isThere = caller.address == address;
        if (caller.isReady() && caller.proof == Proof::Link)
            continue;
        ++(caller.isReady() ? waiting : all);
        if (isThere)
            ++(caller.isReady() ? waitingThere : allThere);
    }
    const auto hungUp = std::count_if(hungUp_.begin(), hungUp_.end(), [&](const HungUp& attempt) {
        return attempt.address == address;
    });
    allThere += static_cast<std::size_t>(hungUp);
    auto isFull = [](std::size_t limit, std::size_t others, std::size_t here) {
        return here >= (others < limit ? limit - others : 1);
    };
    Arrival arrival{true};
    if (isFull(limits_.fromOneAddress, waitingThere, allThere))
        arrival = {false, longestThere(address, now)};
    else if (isFull(limits_.atTheDoor, waiting, all))
        arrival = {false, longestThere(std::nullopt, now)};
    if (arrival.pushedOut) {
        hangUp(callers_.at(*arrival.pushedOut), now);
        callers_.erase(*arrival.pushedOut);
        arrival.hasPlace = true;
    }
    if (arrival.hasPlace)
        callers_[viewer] = {address, now + limits_.handshake};
    return arrival;
}

std::optional<ViewerId> Doorkeeper::longestThere(const std::optional<Address>& address,
                                                 Time now) const {
    // In the order of arrival, so that who comes first in it has been there longest.
    for (const bool isOpener : {false, true}) {
        for (const auto& [viewer, caller] : callers_) {
            const bool isMeant = address ? caller.address == *address && !caller.seesDigits : true;
            if (caller.isReady() || !isMeant || caller.isOpener != isOpener)
                continue;
            if (caller.handshakeUntil - limits_.handshake + limits_.undisturbed <= now)
                return viewer;
            break;
        }
    }
    return std::nullopt;
}

std::optional<Refusal> Doorkeeper::ready(ViewerId viewer, Proof proof, Time now) {
    auto found = callers_.find(viewer);
    if (found == callers_.end())
        return Refusal::TooMany;
    auto& caller = found->second;
    caller.proof = proof;
    auto& kind = kindOf(caller);
    const auto likeIt = std::count_if(callers_.begin(), callers_.end(), [&](const auto& other) {
        return other.second.isReady() && other.second.proof == proof &&
               other.second.address == caller.address;
    });
    std::optional<Refusal> refusal;
    auto pause = kind.pauses.find(caller.address);
    if (refusesEverybody_)
        refusal = Refusal::Everybody;
    else if (admitsOnlyProven_ && proof == Proof::None)
        refusal = Refusal::NoProof;
    else if (pause != kind.pauses.end() && now < pause->second.until)
        refusal = Refusal::TooSoon;
    else if (kind.waiting.size() >= limits_.waiting ||
             static_cast<std::size_t>(likeIt) >= limits_.fromOneAddress ||
             kind.withdrawnUntil >= now + std::chrono::seconds(limits_.withdrawals))
        refusal = Refusal::TooMany;
    if (refusal) {
        callers_.erase(found);
        return refusal;
    }
    caller.handshakeUntil = Time::max();
    kind.waiting.push_back(viewer);
    askNext(now);
    return std::nullopt;
}

void Doorkeeper::leave(ViewerId viewer, Time now) {
    auto caller = callers_.find(viewer);
    if (caller == callers_.end())
        return;
    if (caller->second.isReady()) {
        auto& withdrawnUntil = kindOf(caller->second).withdrawnUntil;
        withdrawnUntil = std::max(withdrawnUntil, now) + std::chrono::seconds(1);
    } else {
        hangUp(caller->second, now);
    }
    dismiss(viewer, now);
}

void Doorkeeper::isOpener(ViewerId viewer) {
    auto caller = callers_.find(viewer);
    if (caller != callers_.end())
        caller->second.isOpener = true;
}

void Doorkeeper::seesDigits(ViewerId viewer) {
    auto caller = callers_.find(viewer);
    if (caller != callers_.end())
        caller->second.seesDigits = true;
}

void Doorkeeper::hangUp(const Caller& caller, Time now) {
    if (caller.seesDigits && hungUp_.size() < limits_.remembered)
        hungUp_.push_back({caller.address, now + limits_.handshake});
}

void Doorkeeper::dismiss(ViewerId viewer, Time now) {
    auto caller = callers_.find(viewer);
    if (caller == callers_.end())
        return;
    std::erase(kindOf(caller->second).waiting, viewer);
    callers_.erase(caller);
    if (asked_ == viewer) {
        asked_.reset();
        askNext(now);
    }
}

void Doorkeeper::askNext(Time now) {
    for (auto proof : {Proof::Link, Proof::None}) {
        auto& waiting = kinds_[static_cast<std::size_t>(proof)].waiting;
        if (asked_ || waiting.empty())
            continue;
        asked_ = waiting.front();
        waiting.pop_front();
        askedUntil_ = now + limits_.answer;
    }
}

std::size_t Doorkeeper::waiting() const {
    return kinds_[0].waiting.size() + kinds_[1].waiting.size();
}

std::vector<std::pair<ViewerId, Refusal>> Doorkeeper::answered(bool isYes, Time now) {
    if (!asked_)
        return {};
    if (!isYes)
        return refuseAsked(Refusal::No, now);
    const auto& caller = callers_.at(*asked_);
    kindOf(caller).pauses.erase(caller.address);
    dismiss(*asked_, now);
    return {};
}

std::vector<std::pair<ViewerId, Refusal>> Doorkeeper::refuseAsked(Refusal refusal, Time now) {
    const auto asked = callers_.at(*asked_);
    remember(asked, now);
    std::vector<std::pair<ViewerId, Refusal>> leaving{{*asked_, refusal}};
    for (auto viewer : kindOf(asked).waiting) {
        if (callers_.at(viewer).address == asked.address)
            leaving.emplace_back(viewer, Refusal::TooSoon);
    }
    // Who is asked about last, so that none of the others is for a moment.
    for (auto viewer = leaving.rbegin(); viewer != leaving.rend(); ++viewer)
        dismiss(viewer->first, now);
    return leaving;
}

void Doorkeeper::remember(const Caller& caller, Time now) {
    auto& pauses = kindOf(caller).pauses;
    auto& pause = pauses[caller.address];
    // Long ago is forgotten: whoever kept away for as long as the longest pause begins anew.
    const bool isFresh = pause.length.count() == 0 || now >= pause.until + limits_.longestPause;
    pause.length = isFresh ? limits_.pause : std::min(pause.length * 2, limits_.longestPause);
    pause.until = now + pause.length;
    if (pauses.size() > limits_.remembered)
        pauses.erase(std::min_element(
            pauses.begin(), pauses.end(),
            [](const auto& a, const auto& b) { return a.second.until < b.second.until; }));
}

std::vector<ViewerId> Doorkeeper::sendAway(Proof proof, Time now) {
    std::vector<ViewerId> leaving;
    for (const auto& [viewer, caller] : callers_) {
        if (caller.isReady() && caller.proof == proof)
            leaving.push_back(viewer);
    }
    for (auto viewer : leaving)
        dismiss(viewer, now);
    return leaving;
}

std::vector<ViewerId> Doorkeeper::refuseEverybody(bool isOn, Time now) {
    refusesEverybody_ = isOn;
    if (!isOn)
        return {};
    auto leaving = sendAway(Proof::Link, now);
    for (auto viewer : sendAway(Proof::None, now))
        leaving.push_back(viewer);
    return leaving;
}

std::vector<ViewerId> Doorkeeper::admitOnlyProven(bool isOn, Time now) {
    admitsOnlyProven_ = isOn;
    return isOn ? sendAway(Proof::None, now) : std::vector<ViewerId>();
}

std::vector<ViewerId> Doorkeeper::everybodyAtTheDoor() const {
    std::vector<ViewerId> all;
    for (const auto& [viewer, caller] : callers_)
        all.push_back(viewer);
    return all;
}

Time Doorkeeper::nextDeadline() const {
    auto next = asked_ ? askedUntil_ : Time::max();
    for (const auto& [viewer, caller] : callers_)
        next = std::min(next, caller.handshakeUntil);
    return next;
}

std::vector<std::pair<ViewerId, Refusal>> Doorkeeper::overdue(Time now) {
    std::vector<std::pair<ViewerId, Refusal>> leaving;
    for (auto caller = callers_.begin(); caller != callers_.end();) {
        if (now >= caller->second.handshakeUntil) {
            leaving.emplace_back(caller->first, Refusal::HandshakeTooLong);
            caller = callers_.erase(caller);
        } else {
            ++caller;
        }
    }
    if (asked_ && now >= askedUntil_) {
        auto refused = refuseAsked(Refusal::NotAnswered, now);
        leaving.insert(leaving.end(), refused.begin(), refused.end());
    }
    return leaving;
}

}  // namespace zelvo::server
