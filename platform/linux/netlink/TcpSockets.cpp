#include "platform/linux/netlink/TcpSockets.h"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>

#include <utility>

namespace zelvo::platform {

std::optional<std::string> listTcpSockets(std::uint8_t state, std::function<void()> startOver,
                                          std::function<void(std::span<const std::byte>)> take,
                                          const NetlinkOpener& open) {
    // The older request lists every family at once. A dump has the kernel go through a table of
    // hundreds of thousands of places, which is most of what it costs.
    inet_diag_req request{};
    request.idiag_states = 1U << state;
    NetlinkQuestion question;
    question.protocol = NETLINK_SOCK_DIAG;
    question.type = TCPDIAG_GETSOCK;
    question.answerType = TCPDIAG_GETSOCK;
    question.bodies = {std::as_bytes(std::span(&request, 1))};
    question.startOver = std::move(startOver);
    question.take = std::move(take);
    return askKernel(question, open);
}

}  // namespace zelvo::platform
