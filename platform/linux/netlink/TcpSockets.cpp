#include "platform/linux/netlink/TcpSockets.h"

#include <arpa/inet.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <netinet/tcp.h>

#include <cstring>
#include <utility>

namespace zelvo::platform {

namespace {

/// `Request` is what follows the header of a request of that type.
template <typename Request>
NetlinkQuestion question(std::uint16_t type, const Request& request) {
    NetlinkQuestion result;
    result.protocol = NETLINK_SOCK_DIAG;
    result.type = type;
    result.answerType = type;
    result.bodies = {std::as_bytes(std::span(&request, 1))};
    return result;
}

}  // namespace

std::optional<std::string> listTcpSockets(std::uint8_t state, std::function<void()> startOver,
                                          std::function<void(std::span<const std::byte>)> take,
                                          const NetlinkOpener& open) {
    // The older request lists every family at once. A dump has the kernel go through a table of
    // hundreds of thousands of places, which is most of what it costs.
    inet_diag_req request{};
    request.idiag_states = 1U << state;
    auto asked = question(TCPDIAG_GETSOCK, request);
    asked.startOver = std::move(startOver);
    asked.take = std::move(take);
    return askKernel(asked, open);
}

std::optional<std::uint32_t> tcpListener(std::uint16_t port) {
    inet_diag_req_v2 request{};
    request.sdiag_family = AF_INET;
    request.sdiag_protocol = IPPROTO_TCP;
    request.idiag_states = 1U << TCP_LISTEN;
    request.id.idiag_sport = htons(port);
    request.id.idiag_cookie[0] = INET_DIAG_NOCOOKIE;
    request.id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
    inet_diag_msg found{};
    auto asked = question(SOCK_DIAG_BY_FAMILY, request);
    asked.isDump = false;
    asked.startOver = [] {};
    asked.take = [&](std::span<const std::byte> message) {
        if (message.size() >= sizeof found)
            std::memcpy(&found, message.data(), sizeof found);
    };
    if (askKernel(asked) || found.idiag_state != TCP_LISTEN)
        return std::nullopt;
    return found.idiag_inode;
}

}  // namespace zelvo::platform
