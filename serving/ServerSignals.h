#pragma once

#include <atomic>
#include <functional>
#include <thread>

namespace zelvo::serving {

/// Waits for signals on a thread of its own, from construction to destruction, and calls there what
/// is to be done. Nothing runs in a signal handler: the signals are blocked, in this thread and in
/// all that it starts from then on, so this has to come before other threads.
class ServerSignals {
  public:
    struct Actions {
        std::function<void()> end;     ///< SIGTERM, SIGINT
        std::function<void()> reload;  ///< SIGHUP
    };

    /// Blocks the signals; they wait until start().
    ServerSignals();
    ServerSignals(const ServerSignals&) = delete;
    ServerSignals& operator=(const ServerSignals&) = delete;
    ~ServerSignals();

    void start(Actions actions);
    /// Nothing is called any more.
    void stop();

  private:
    std::atomic<bool> ending_ = false;
    std::thread thread_;
};

}  // namespace zelvo::serving
