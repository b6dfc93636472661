#include "relay/NumberBook.h"

#include <algorithm>
#include <cmath>

#include "relay/messages/RelayHeads.h"

namespace zelvo::relay {

std::chrono::milliseconds HostAccount::take(std::size_t bytes, Clock::time_point now) {
    if (rate_.atOnce <= 0)
        return {};
    const std::chrono::duration<double> since = now - at_;
    at_ = now;
    left_ = std::min(rate_.atOnce, left_ + since.count() * rate_.perSecond);
    left_ -= static_cast<double>(bytes);
    if (left_ > 0)
        return {};
    // To be worth a turn, a tenth of a second's share; all of it is made up for.
    const auto seconds = 0.1 - left_ / std::max(rate_.perSecond, 1.0);
    return std::chrono::milliseconds(static_cast<int>(std::min(seconds, 60.0) * 1000));
}

NumberBook::Entry* NumberBook::find(int number) {
    const auto found = entries_.find(number);
    return found == entries_.end() ? nullptr : &found->second;
}

std::optional<int> NumberBook::give(const std::optional<Lease>& lease, Moment now) {
    std::optional<int> number;
    if (lease) {
        const auto* entry = find(lease->number);
        if (!entry || entry->host == lease->host || isFree(lease->number, now, true))
            number = lease->number;
    }
    if (!number)
        number = draw(now);
    if (!number)
        return std::nullopt;
    auto& entry = entries_[*number];
    const auto host = lease ? lease->host : freshPseudonym();
    if (entry.host != host)
        entry = {.host = host, .line = nullptr, .account = nullptr};
    entry.leaseEnd = now + Lease::ValidFor;
    return number;
}

bool NumberBook::isFree(int number, Moment now, bool leasesCount) const {
    const auto found = entries_.find(number);
    return found == entries_.end() ||
           (!found->second.line && (!leasesCount || found->second.leaseEnd <= now));
}

std::optional<int> NumberBook::draw(Moment now) {
    constexpr int tries = 64;
    const auto step = static_cast<int>(loops_);
    const auto first =
        FirstNumber + static_cast<int>((index_ + loops_ - FirstNumber % loops_) % loops_);
    const int count = (LastNumber - first) / step + 1;
    std::uniform_int_distribution<int> any(0, count - 1);
    for (int i = 0; i < tries; ++i)
        if (const int number = first + any(random_) * step; isFree(number, now, true))
            return number;
    // Full of hosts that have not been there for long: one of them gives way.
    const int begin = any(random_);
    for (int i = 0; i < count; ++i)
        if (const int number = first + (begin + i) % count * step; isFree(number, now, false))
            return number;
    return std::nullopt;
}

}  // namespace zelvo::relay
