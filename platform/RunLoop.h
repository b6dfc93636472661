#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace zelvo::platform {

/// A repeating timer. Destroying it ends it, also from inside its own tick. Main thread only.
class Timer {
  public:
    virtual ~Timer() = default;

    /// True until `invalidate`.
    virtual bool isValid() const = 0;
    /// No tick comes after this call.
    virtual void invalidate() = 0;
};

/// A call that waits for its turn. Destroying it withdraws the call; destroying it from inside the
/// call, or after it, does nothing. Main thread only.
class Perform {
  public:
    virtual ~Perform() = default;
};

/// The main thread's run loop. Main thread only.
class RunLoop {
  public:
    virtual ~RunLoop() = default;

    /// A timer that ticks every `interval`, first one interval from now, in the default mode only:
    /// ticks due while a menu is open wait until it has closed. The tick is given its own timer.
    virtual std::unique_ptr<Timer> scheduleTimer(std::chrono::milliseconds interval,
                                                 std::function<void(Timer&)> tick) = 0;

    /// One call, `delay` from now, in the default mode.
    virtual std::unique_ptr<Perform> performAfterDelay(std::chrono::milliseconds delay,
                                                       std::function<void()> call) = 0;

    /// One call at the loop's next turn. Turns that have nothing else to do are paced, so that a
    /// call which queues itself anew costs little.
    virtual std::unique_ptr<Perform> performOnNextTurn(std::function<void()> call) = 0;
};

}  // namespace zelvo::platform
