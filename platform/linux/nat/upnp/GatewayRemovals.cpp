#include "platform/linux/nat/upnp/GatewayRemovals.h"

#include <algorithm>

#include "platform/linux/nat/upnp/SoapMessage.h"

namespace zelvo::platform {

namespace {

using namespace std::chrono_literals;

constexpr RetrySchedule Schedule{500ms, 2, 500ms};

}  // namespace

void GatewayRemovals::begin(const std::optional<UpnpService>& service, bool cutOff) {
    begun_ = true;
    service_ = service;
    cutOff_ = cutOff;
    if (!removals_.empty()) {
        schedule_.begin(network_.now());
        wake();
    }
}

void GatewayRemovals::wake() {
    const NatTime now = network_.now();
    if (schedule_.next() <= now && schedule_.step(now, Schedule)) {
        send();
    }
}

bool GatewayRemovals::isConfirmed() const {
    return std::none_of(removals_.begin(), removals_.end(), [](const auto& r) { return r.open; });
}

void GatewayRemovals::send() {
    for (std::size_t index = 0; index < removals_.size(); ++index) {
        Removal& removal = removals_[index];
        if (removal.open) {
            removal.exchange = network_.exchange(
                service_->control.server, localAddress_,
                soapRequest(*service_, "DeletePortMapping",
                            soapEntryName(removal.externalPort, removal.tcp)),
                [this, index](const auto& response) { answered(index, response); });
        }
    }
}

void GatewayRemovals::answered(std::size_t index, const std::optional<HttpResponse>& response) {
    const SoapAnswer answer(response.value_or(HttpResponse{}));
    // What was ordered last may take effect only now; the second attempt finds it. That the first
    // has removed something is no proof: in a renewal it was the entry before.
    const bool tooEarly = cutOff_ && schedule_.sent() == 1;
    if ((answer.isSuccess() || isAbsent(answer.errorCode())) && !tooEarly) {
        removals_[index].open = false;
    }
    if (isConfirmed()) {
        schedule_.end();
    }
}

}  // namespace zelvo::platform
