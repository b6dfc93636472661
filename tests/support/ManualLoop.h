#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/MainQueue.h"
#include "platform/RunLoop.h"
#include "tests/support/RecordingLog.h"

namespace zelvo::test {

/// Main queue and run loop with virtual time. Nothing runs but inside `turn` and `advance`.
class ManualLoop : public platform::MainQueue, public platform::RunLoop {
  public:
    ~ManualLoop() override { close(); }

    void async(std::function<void()> job) override {
        if (open_)
            queue_.push_back(std::move(job));
    }
    bool isOpen() const override { return open_; }
    std::unique_ptr<platform::Timer> scheduleTimer(
        std::chrono::milliseconds interval, std::function<void(platform::Timer&)> tick) override;
    std::unique_ptr<platform::Perform> performAfterDelay(std::chrono::milliseconds delay,
                                                         std::function<void()> call) override;
    std::unique_ptr<platform::Perform> performOnNextTurn(std::function<void()> call) override {
        return performAfterDelay(std::chrono::milliseconds(0), std::move(call));
    }

    /// Runs what is queued and due now, not what that queues.
    void turn();
    /// Turns until nothing is queued or due, at most `limit` times.
    void settle(int limit = 50);
    /// Lets time pass, with turns where something is due.
    void advance(std::chrono::milliseconds time);
    /// Destroys what is queued and takes nothing more.
    void close();

    /// Calls that wait for their turn or time.
    std::size_t waiting() const { return count(false); }
    /// Timers that still tick.
    std::size_t timers() const { return count(true); }

  private:
    struct FakeTimer;

    using Time = std::chrono::milliseconds;

    std::size_t count(bool repeating, Time until = Time::max()) const;
    void runDue();

    bool open_ = true;
    Time now_{0};
    std::uint64_t next_ = 0;
    std::deque<std::function<void()>> queue_;
    std::map<std::uint64_t, FakeTimer*> timers_;
};

}  // namespace zelvo::test
