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

inet_diag_req_v2 tcpSockets(std::uint8_t family, std::uint8_t state) {
    inet_diag_req_v2 request{};
    request.sdiag_family = family;
    request.sdiag_protocol = IPPROTO_TCP;
    request.idiag_states = 1U << state;
    return request;
}

std::span<const std::byte> bytesOf(const inet_diag_req_v2& request) {
    return std::as_bytes(std::span(&request, 1));
}

NetlinkQuestion question() {
    NetlinkQuestion result;
    result.protocol = NETLINK_SOCK_DIAG;
    result.type = SOCK_DIAG_BY_FAMILY;
    result.answerType = SOCK_DIAG_BY_FAMILY;
    return result;
}

}  // namespace

std::optional<std::string> listTcpSockets(std::uint8_t state, std::function<void()> startOver,
                                          std::function<void(std::span<const std::byte>)> take,
                                          const NetlinkOpener& open) {
    auto overIPv4 = tcpSockets(AF_INET, state);
    auto overIPv6 = tcpSockets(AF_INET6, state);
    auto asked = question();
    asked.bodies = {bytesOf(overIPv4), bytesOf(overIPv6)};
    asked.startOver = std::move(startOver);
    asked.take = std::move(take);
    return askKernel(asked, open);
}

std::optional<std::uint32_t> tcpListener(std::uint16_t port) {
    auto request = tcpSockets(AF_INET, TCP_LISTEN);
    request.id.idiag_sport = htons(port);
    request.id.idiag_cookie[0] = INET_DIAG_NOCOOKIE;
    request.id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
    inet_diag_msg found{};
    auto asked = question();
    asked.isDump = false;
    asked.bodies = {bytesOf(request)};
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
