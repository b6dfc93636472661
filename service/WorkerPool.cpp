#include "service/WorkerPool.h"

#include <utility>

namespace zelvo::service {

WorkerPool::WorkerPool(std::size_t workers, std::size_t longestQueue)
    : longestQueue_(longestQueue) {
    for (std::size_t i = 0; i < workers; ++i)
        threads_.emplace_back([this] { work(); });
}

void WorkerPool::enqueue(std::function<void()> job) {
    std::unique_lock lock(mutex_);
    roomChanged_.wait(lock, [this] { return jobs_.size() < longestQueue_; });
    jobs_.push_back(std::move(job));
    jobsChanged_.notify_one();
}

void WorkerPool::shutdown() {
    {
        std::lock_guard lock(mutex_);
        ending_ = true;
    }
    jobsChanged_.notify_all();
    for (auto& thread : threads_)
        thread.join();
    threads_.clear();
}

void WorkerPool::work() {
    for (;;) {
        std::unique_lock lock(mutex_);
        jobsChanged_.wait(lock, [this] { return ending_ || !jobs_.empty(); });
        if (jobs_.empty())
            return;
        auto job = std::move(jobs_.front());
        jobs_.pop_front();
        lock.unlock();
        roomChanged_.notify_one();
        job();
    }
}

}  // namespace zelvo::service
