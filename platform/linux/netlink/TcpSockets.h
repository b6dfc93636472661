#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

#include "platform/linux/netlink/NetlinkQuestion.h"

namespace zelvo::platform {

/// The kernel's TCP sockets, over IPv4 and IPv6, that are in a state such as TCP_LISTEN, each as an
/// inet_diag_msg and its attributes (sock_diag(7)). Nothing, or what failed. Any thread.
std::optional<std::string> listTcpSockets(std::uint8_t state, std::function<void()> startOver,
                                          std::function<void(std::span<const std::byte>)> take,
                                          const NetlinkOpener& open = openNetlink);

}  // namespace zelvo::platform
