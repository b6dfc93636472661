#include "platform/linux/nat/upnp/GatewayCalls.h"

#include <utility>

namespace zelvo::platform {

namespace {

using namespace std::chrono_literals;

constexpr auto CallLimit = 3s;
constexpr int CallTries = 2;

}  // namespace

void GatewayCalls::start(const Ipv4Endpoint& server, std::string request, HttpExchange::Done done) {
    call_ = {server, std::move(request), std::move(done)};
    send();
}

void GatewayCalls::wake() {
    if (call_.deadline <= network_.now()) {
        cutOff_ = true;
        answered(std::nullopt);
    }
}

void GatewayCalls::send() {
    ++call_.tries;
    call_.deadline = network_.now() + CallLimit;
    call_.exchange = network_.exchange(call_.server, localAddress_, call_.request,
                                       [this](const auto& response) { answered(response); });
}

void GatewayCalls::answered(const std::optional<HttpResponse>& response) {
    if (!response && call_.tries < CallTries) {
        send();
        return;
    }
    const Call call = std::exchange(call_, {});
    call.done(response);
}

}  // namespace zelvo::platform
