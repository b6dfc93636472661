#pragma once

#include <algorithm>

#include "platform/linux/nat/base/NatClock.h"

namespace zelvo::platform {

/// When an unanswered request is sent again: each wait twice the one before it.
struct RetrySchedule {
    std::chrono::milliseconds first;
    int tries;
    std::chrono::milliseconds longest = std::chrono::seconds(1024);
};

/// One request that waits for its answer.
class Retry {
  public:
    void begin(NatTime now) {
        sent_ = 0;
        next_ = now;
    }
    void end() { next_ = Never; }

    /// To be called when `next` has come: true when the request is to be sent (again), false when
    /// its tries are used up, and it has ended.
    bool step(NatTime now, const RetrySchedule& schedule) {
        if (sent_ == schedule.tries) {
            end();
            return false;
        }
        next_ = now + std::min(schedule.first * (1L << std::min(sent_, 20)), schedule.longest);
        ++sent_;
        return true;
    }

    bool isOpen() const { return next_ != Never; }
    int sent() const { return sent_; }
    NatTime next() const { return next_; }

  private:
    int sent_ = 0;
    NatTime next_ = Never;
};

}  // namespace zelvo::platform
