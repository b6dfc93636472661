#pragma once

#include <functional>
#include <memory>

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/nat/base/PollLoop.h"

namespace zelvo::platform {

/// Tells when the host has slept.
class SleepWatch {
  public:
    SleepWatch(PollLoop& loop, std::function<void()> slept);

  private:
    void arm();
    void clockChanged();

    std::function<void()> slept_;
    FileDescriptor timer_;
    std::unique_ptr<PollLoop::Watch> watch_;
    /// Time asleep since the machine's start.
    std::chrono::milliseconds asleep_;
};

}  // namespace zelvo::platform
