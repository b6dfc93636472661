#pragma once

#include <sys/eventfd.h>

#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::server {

/// What other threads want done on the thread of a loop.
template <typename... Arguments>
class TaskQueue {
  public:
    using Task = std::function<void(Arguments...)>;

    /// From any thread. What is never taken is destroyed with the queue.
    void post(Task task) {
        {
            std::lock_guard lock(mutex_);
            tasks_.push_back(std::move(task));
        }
        ::eventfd_write(wake_.get(), 1);
    }

    int descriptor() const { return wake_.get(); }
    std::vector<Task> take() {
        eventfd_t count = 0;
        ::eventfd_read(wake_.get(), &count);
        std::lock_guard lock(mutex_);
        return std::exchange(tasks_, {});
    }

  private:
    platform::FileDescriptor wake_{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    std::mutex mutex_;
    std::vector<Task> tasks_;
};

}  // namespace zelvo::server
