#pragma once

#include <chrono>
#include <functional>

#include "platform/linux/base/EventLoop.h"
#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::server {

/// Calls once, in a turn of the loop, when the time that was set last is over.
class Timer {
  public:
    Timer(platform::EventLoop& loop, std::function<void()> due);

    void set(std::chrono::milliseconds time);

  private:
    const std::function<void()> due_;
    platform::FileDescriptor descriptor_;
    platform::EventLoop::Watch watch_;
};

}  // namespace zelvo::server
