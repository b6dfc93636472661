#pragma once

#include <chrono>

namespace zelvo::platform {

/// Time since the machine's start, time asleep included: a lease runs on while the host sleeps.
struct NatClock {
    using duration = std::chrono::milliseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<NatClock>;
    static constexpr bool is_steady = true;
};

using NatTime = NatClock::time_point;

inline constexpr NatTime Never = NatTime::max();

}  // namespace zelvo::platform
