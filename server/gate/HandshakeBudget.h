#pragma once

#include <algorithm>
#include <chrono>

namespace zelvo::server {

/// The time on a processor that agreeing upon keys with strangers may take, which is by far the
/// dearest thing that they can have done: a few in a row, and then two thirds of a
/// hundredth of one core.
class HandshakeBudget {
  public:
    using Time = std::chrono::steady_clock::time_point;

    /// From when on there is something to spend; the past where there is.
    Time opensAt() const { return paidUntil_ - reserve * share; }
    bool isOpen(Time now) const { return now >= opensAt(); }
    /// What was spent on one step; a handshake that was begun within the budget may end beyond it.
    void spend(std::chrono::nanoseconds cost, Time now) {
        paidUntil_ = std::max(paidUntil_, now) + (cost + turn) * share;
    }

  private:
    static constexpr std::chrono::milliseconds reserve{30};
    static constexpr int share = 150;
    /// What it takes to come to a step at all: who says one byte at a time pays for that, too.
    static constexpr std::chrono::microseconds turn{50};

    Time paidUntil_;
};

}  // namespace zelvo::server
