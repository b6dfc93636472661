#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

#include "platform/MainQueue.h"

namespace zelvo::test {

/// A main queue that the test runs by hand, waiting for what other threads put in.
class WaitingQueue : public platform::MainQueue {
  public:
    void async(std::function<void()> job) override {
        const std::lock_guard lock(mutex_);
        if (open_)
            jobs_.push_back(std::move(job));
        changed_.notify_all();
    }
    bool isOpen() const override {
        const std::lock_guard lock(mutex_);
        return open_;
    }
    void close() {
        const std::lock_guard lock(mutex_);
        open_ = false;
        jobs_.clear();
    }

    /// Runs jobs until the condition holds; false when the time is up. The condition is looked at
    /// after each job, and once in each `pause`.
    bool runUntil(const std::function<bool()>& condition,
                  std::chrono::milliseconds limit = std::chrono::seconds(15),
                  std::chrono::milliseconds pause = std::chrono::hours(1)) {
        const auto end = std::chrono::steady_clock::now() + limit;
        while (!condition()) {
            const auto now = std::chrono::steady_clock::now();
            std::unique_lock lock(mutex_);
            if (changed_.wait_until(lock, std::min(end, now + pause),
                                    [this] { return !jobs_.empty(); })) {
                const auto job = std::move(jobs_.front());
                jobs_.pop_front();
                lock.unlock();
                job();
            } else if (std::chrono::steady_clock::now() >= end) {
                return false;
            }
        }
        return true;
    }
    /// Runs what is there now.
    void drain() {
        runUntil([] { return false; }, std::chrono::milliseconds(0));
    }

  private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> jobs_;
    bool open_ = true;
};

}  // namespace zelvo::test
