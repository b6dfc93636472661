#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/nat/base/PollLoop.h"

namespace zelvo::platform {

/// The way to a router. Host byte order.
struct RouterRoute {
    std::uint32_t router = 0;
    /// This host's address on that way.
    std::uint32_t localAddress = 0;
    /// 0 where nobody asked.
    int interfaceIndex = 0;

    friend bool operator==(const RouterRoute&, const RouterRoute&) = default;
};

/// The default route with the lowest metric that has a gateway; nothing without one.
std::optional<RouterRoute> readDefaultRoute();
/// The way to a router that is known already.
std::optional<RouterRoute> readRouteTo(std::uint32_t router);

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
