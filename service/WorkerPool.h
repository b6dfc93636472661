#pragma once

#include <httplib.h>

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace zelvo::service {

/// A fixed number of threads, each serving one connection at a time, and a short queue. While the
/// queue is full no connection is accepted: further clients wait in the kernel, which bounds the
/// open descriptors and the memory.
class WorkerPool : public httplib::TaskQueue {
  public:
    WorkerPool(std::size_t workers, std::size_t longestQueue);
    ~WorkerPool() override { shutdown(); }

    void enqueue(std::function<void()> job) override;
    /// Runs what is queued, then joins the threads.
    void shutdown() override;

  private:
    void work();

    const std::size_t longestQueue_;
    std::mutex mutex_;
    std::condition_variable jobsChanged_;
    std::condition_variable roomChanged_;
    std::deque<std::function<void()>> jobs_;
    bool ending_ = false;
    std::vector<std::thread> threads_;
};

}  // namespace zelvo::service
