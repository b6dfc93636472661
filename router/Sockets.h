#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>

#include "platform/linux/base/EventLoop.h"
#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::router {

using platform::EventLoop;
using Clock = EventLoop::Clock;

/// IPv4, host byte order.
struct Endpoint {
    std::uint32_t address = 0;
    std::uint16_t port = 0;

    friend bool operator<(const Endpoint& left, const Endpoint& right) {
        return std::tie(left.address, left.port) < std::tie(right.address, right.port);
    }
};

std::string text(std::uint32_t address);
std::string text(const Endpoint& endpoint);
std::optional<std::uint32_t> parseAddress(const std::string& text);

/// All sockets are non-blocking; an empty descriptor is a failure. Port 0 takes a free one.
platform::FileDescriptor openDatagramSocket(const Endpoint& local);
platform::FileDescriptor openListener(const Endpoint& local);
/// Begins to connect; the end shows when it becomes writable.
platform::FileDescriptor openConnection(const Endpoint& peer);
Endpoint localEndpoint(const platform::FileDescriptor& socket);

}  // namespace zelvo::router
