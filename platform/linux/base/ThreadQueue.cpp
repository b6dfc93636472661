#include "platform/linux/base/ThreadQueue.h"

#include <csignal>
#include <utility>

namespace zelvo::platform {

void blockSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

ThreadQueue::~ThreadQueue() {
    {
        std::lock_guard lock(mutex_);
        ending_ = true;
    }
    changed_.notify_one();
    if (thread_.joinable())
        thread_.join();
}

void ThreadQueue::async(std::function<void()> job) {
    std::lock_guard lock(mutex_);
    if (ending_)
        return;
    jobs_.push_back(std::move(job));
    if (!thread_.joinable())
        thread_ = std::thread([this] { run(); });
    changed_.notify_one();
}

void ThreadQueue::run() {
    blockSignals();
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return ending_ || !jobs_.empty(); });
        if (ending_)
            return;
        auto job = std::move(jobs_.front());
        jobs_.pop_front();
        lock.unlock();
        job();
        job = nullptr;
        lock.lock();
    }
}

}  // namespace zelvo::platform
