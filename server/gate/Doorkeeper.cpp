#include "server/gate/Doorkeeper.h"

#include <algorithm>

namespace zelvo::server {

bool Doorkeeper::arrive(ViewerId viewer, const Address& address, Time now) {
    auto fromThere = std::count_if(callers_.begin(), callers_.end(), [&](const auto& caller) {
        return caller.second.address == address;
    });
    if (callers_.size() >= limits_.atTheDoor ||
        static_cast<std::size_t>(fromThere) >= limits_.fromOneAddress)
        return false;
    callers_[viewer] = {address, now + limits_.handshake};
    return true;
}

std::optional<Refusal> Doorkeeper::ready(ViewerId viewer, Time now) {
    auto caller = callers_.find(viewer);
    if (caller == callers_.end())
        return Refusal::TooMany;
    std::optional<Refusal> refusal;
    auto pause = pauses_.find(caller->second.address);
    if (refusesEverybody_)
        refusal = Refusal::Everybody;
    else if (pause != pauses_.end() && now < pause->second.until)
        refusal = Refusal::TooSoon;
    else if (queue_.size() > limits_.waiting ||
             withdrawnUntil_ >= now + std::chrono::seconds(limits_.withdrawals))
        refusal = Refusal::TooMany;
    if (refusal) {
        callers_.erase(caller);
        return refusal;
    }
    caller->second.handshakeUntil = Time::max();
    queue_.push_back(viewer);
    if (queue_.size() == 1)
        askedUntil_ = now + limits_.answer;
    return std::nullopt;
}

void Doorkeeper::leave(ViewerId viewer, Time now) {
    if (std::find(queue_.begin(), queue_.end(), viewer) != queue_.end())
        withdrawnUntil_ = std::max(withdrawnUntil_, now) + std::chrono::seconds(1);
    remove(viewer, now);
}

void Doorkeeper::remove(ViewerId viewer, Time now) {
    callers_.erase(viewer);
    auto place = std::find(queue_.begin(), queue_.end(), viewer);
    if (place == queue_.end())
        return;
    const bool wasAsked = place == queue_.begin();
    queue_.erase(place);
    if (wasAsked)
        askedUntil_ = now + limits_.answer;
}

std::optional<ViewerId> Doorkeeper::asked() const {
    return queue_.empty() ? std::nullopt : std::optional(queue_.front());
}

std::vector<std::pair<ViewerId, Refusal>> Doorkeeper::answered(bool isYes, Time now) {
    if (queue_.empty())
        return {};
    if (!isYes)
        return refuseAsked(Refusal::No, now);
    pauses_.erase(callers_.at(queue_.front()).address);
    remove(queue_.front(), now);
    return {};
}

std::vector<std::pair<ViewerId, Refusal>> Doorkeeper::refuseAsked(Refusal refusal, Time now) {
    const auto address = callers_.at(queue_.front()).address;
    remember(address, now);
    std::vector<std::pair<ViewerId, Refusal>> leaving;
    for (auto viewer : queue_) {
        if (callers_.at(viewer).address == address)
            leaving.emplace_back(viewer, leaving.empty() ? refusal : Refusal::TooSoon);
    }
    for (const auto& [viewer, why] : leaving)
        remove(viewer, now);
    return leaving;
}

void Doorkeeper::remember(const Address& address, Time now) {
    auto& pause = pauses_[address];
    // Long ago is forgotten: whoever kept away for as long as the longest pause begins anew.
    const bool isFresh = pause.length.count() == 0 || now >= pause.until + limits_.longestPause;
    pause.length = isFresh ? limits_.pause : std::min(pause.length * 2, limits_.longestPause);
    pause.until = now + pause.length;
    if (pauses_.size() > limits_.remembered)
        pauses_.erase(std::min_element(
            pauses_.begin(), pauses_.end(),
            [](const auto& a, const auto& b) { return a.second.until < b.second.until; }));
}

std::vector<ViewerId> Doorkeeper::refuseEverybody(bool isOn) {
    refusesEverybody_ = isOn;
    std::vector<ViewerId> leaving;
    if (isOn) {
        leaving.assign(queue_.begin(), queue_.end());
        queue_.clear();
        for (auto viewer : leaving)
            callers_.erase(viewer);
    }
    return leaving;
}

std::vector<ViewerId> Doorkeeper::everybodyAtTheDoor() const {
    std::vector<ViewerId> all;
    for (const auto& [viewer, caller] : callers_)
        all.push_back(viewer);
    return all;
}

Time Doorkeeper::nextDeadline() const {
    auto next = queue_.empty() ? Time::max() : askedUntil_;
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
    if (!queue_.empty() && now >= askedUntil_) {
        auto refused = refuseAsked(Refusal::NotAnswered, now);
        leaving.insert(leaving.end(), refused.begin(), refused.end());
    }
    return leaving;
}

}  // namespace zelvo::server
