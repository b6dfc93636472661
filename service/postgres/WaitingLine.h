#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <utility>
#include <vector>

namespace zelvo::service {

/// Jobs that wait for a thread, as many as there may be. Any thread.
template <typename Job>
class WaitingLine {
  public:
    explicit WaitingLine(std::size_t most) : most_(most) {}

    /// False, and the job is as before, where there are too many or the end has come.
    bool add(Job& job) {
        {
            const std::lock_guard lock(mutex_);
            if (jobs_.size() >= most_ || isEnding_)
                return false;
            jobs_.push_back({std::move(job), Clock::now()});
        }
        changed_.notify_one();
        return true;
    }

    /// Waits for jobs, and takes some of the oldest. None once the end has come and all are taken.
    std::vector<Job> take(std::size_t most) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return isEnding_ || !jobs_.empty(); });
        return takeFirst(std::min(most, jobs_.size()));
    }

    /// Takes those that have waited for longer.
    std::vector<Job> takeStale(std::chrono::seconds age) {
        const std::lock_guard lock(mutex_);
        const auto fresh = std::ranges::find_if(
            jobs_, [last = Clock::now() - age](const auto& it) { return it.since >= last; });
        return takeFirst(static_cast<std::size_t>(fresh - jobs_.begin()));
    }

    void end() {
        {
            const std::lock_guard lock(mutex_);
            isEnding_ = true;
        }
        changed_.notify_all();
    }

    std::size_t size() const {
        const std::lock_guard lock(mutex_);
        return jobs_.size();
    }

  private:
    using Clock = std::chrono::steady_clock;
    struct Entry {
        Job job;
        Clock::time_point since;
    };

    std::vector<Job> takeFirst(std::size_t count) {
        std::vector<Job> taken;
        for (; count > 0; --count) {
            taken.push_back(std::move(jobs_.front().job));
            jobs_.pop_front();
        }
        return taken;
    }

    const std::size_t most_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Entry> jobs_;
    bool isEnding_ = false;
};

}  // namespace zelvo::service
