#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <iterator>
#include <mutex>
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
            jobs_.push_back(std::move(job));
        }
        changed_.notify_one();
        return true;
    }

    /// Waits for jobs, and takes some of the oldest. None once the end has come and all are taken.
    std::vector<Job> take(std::size_t most) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return isEnding_ || !jobs_.empty(); });
        const auto end = jobs_.begin() + static_cast<std::ptrdiff_t>(std::min(most, jobs_.size()));
        std::vector<Job> taken(std::make_move_iterator(jobs_.begin()),
                               std::make_move_iterator(end));
        jobs_.erase(jobs_.begin(), end);
        return taken;
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
    const std::size_t most_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Job> jobs_;
    bool isEnding_ = false;
};

}  // namespace zelvo::service
