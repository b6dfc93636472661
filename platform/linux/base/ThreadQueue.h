#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "platform/MainQueue.h"

namespace zelvo::platform {

/// A serial queue on a thread that starts with the first job.
class ThreadQueue : public SerialQueue {
  public:
    ThreadQueue() = default;
    ThreadQueue(const ThreadQueue&) = delete;
    ThreadQueue& operator=(const ThreadQueue&) = delete;
    ~ThreadQueue() override;

    void async(std::function<void()> job) override;

  private:
    void run();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> jobs_;
    bool ending_ = false;
    std::thread thread_;
};

/// Leaves all signals to the main thread. For the start of a worker.
void blockSignals();

}  // namespace zelvo::platform
