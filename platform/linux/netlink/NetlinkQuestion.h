#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::platform {

/// A socket to the kernel for a protocol such as NETLINK_ROUTE; without a value, errno says why.
using NetlinkOpener = std::function<FileDescriptor(int protocol)>;
FileDescriptor openNetlink(int protocol);

/// What the kernel is asked to list over netlink(7), and what is made of its answer.
struct NetlinkQuestion {
    int protocol = 0;
    /// Of the request, and of the answer's messages that count.
    std::uint16_t type = 0;
    std::uint16_t answerType = 0;
    /// What follows the header of each request; they are asked one after the other.
    std::vector<std::span<const std::byte>> bodies;
    /// What was taken belongs to an answer that has broken off: it is to be forgotten.
    std::function<void()> startOver;
    /// What follows the header of one message.
    std::function<void(std::span<const std::byte> message)> take;
};

/// Asks, and asks anew where the kernel says that what it listed has changed meanwhile. Nothing, or
/// what failed. Blocks while the kernel answers, which it does at once; for two seconds with a
/// broken one. Any thread.
std::optional<std::string> askKernel(const NetlinkQuestion& question,
                                     const NetlinkOpener& open = openNetlink);

/// The value of the first attribute of a type among those that follow a message's fixed part; none
/// without one.
std::optional<std::span<const std::byte>> netlinkAttribute(std::span<const std::byte> attributes,
                                                           std::uint16_t type);

}  // namespace zelvo::platform
