#pragma once

#include <functional>
#include <memory>

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/nat/base/PollLoop.h"

namespace zelvo::platform {

/// Tells when the kernel's routes, this host's IPv4 addresses or its links change, by rtnetlink.
class RouteMonitor {
  public:
    RouteMonitor(PollLoop& loop, std::function<void()> changed);

  private:
    void drain();

    std::function<void()> changed_;
    FileDescriptor socket_;
    std::unique_ptr<PollLoop::Watch> watch_;
};

}  // namespace zelvo::platform
