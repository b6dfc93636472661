#pragma once

#include <atomic>
#include <functional>
#include <thread>

namespace zelvo::service {

/// Waits for SIGTERM or SIGINT on a thread of its own, from construction to destruction, and calls
/// the function there once. Nothing runs in a signal handler: both signals are blocked, in this
/// thread and in all that it starts from then on, so this has to come before other threads.
class TerminationSignals {
  public:
    explicit TerminationSignals(std::function<void()> onSignal);
    TerminationSignals(const TerminationSignals&) = delete;
    TerminationSignals& operator=(const TerminationSignals&) = delete;
    ~TerminationSignals();

  private:
    std::atomic<bool> ending_ = false;
    std::thread thread_;
};

}  // namespace zelvo::service
