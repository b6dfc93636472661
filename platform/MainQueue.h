#pragma once

#include <functional>

namespace zelvo::platform {

/// The queue of work for the main thread.
class MainQueue {
  public:
    virtual ~MainQueue() = default;

    /// Runs `job` on the main thread, later and in the order of submission, never inside this call.
    /// Any thread. After the queue has been closed the job is dropped without running.
    virtual void async(std::function<void()> job) = 0;

    /// False once the application is ending and no further job will run. Any thread.
    virtual bool isOpen() const = 0;
};

/// Work that runs one job at a time, in the order of submission, on a thread of its own.
class SerialQueue {
  public:
    /// Waits for the job that is running; jobs that have not begun are dropped.
    virtual ~SerialQueue() = default;

    /// Any thread.
    virtual void async(std::function<void()> job) = 0;
};

}  // namespace zelvo::platform
