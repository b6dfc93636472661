#pragma once

#include <chrono>
#include <functional>

namespace zelvo::platform {

/// Tells whether an answer can have been meant: buttons rest for a second after they have appeared
/// and after every key, so that nobody hits one that was not there when they aimed. Main thread
/// only.
class AnswerGuard {
  public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;
    static constexpr std::chrono::milliseconds Rest{1000};

    explicit AnswerGuard(Clock clock) : clock_(std::move(clock)) {}

    void rest() { liveFrom_ = clock_() + Rest; }
    bool isLive() const { return clock_() >= liveFrom_; }
    std::chrono::steady_clock::time_point now() const { return clock_(); }

  private:
    Clock clock_;
    std::chrono::steady_clock::time_point liveFrom_{};
};

}  // namespace zelvo::platform
