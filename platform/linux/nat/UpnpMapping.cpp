#include "platform/linux/nat/UpnpMapping.h"

#include <arpa/inet.h>

#include <random>

#include "platform/linux/nat/SoapMessage.h"

namespace zelvo::platform {

namespace {

using namespace std::chrono_literals;

constexpr RetrySchedule RemovalSchedule{500ms, 2, 500ms};
constexpr auto CallLimit = 3s;
constexpr int CallTries = 2;
/// The UDP half may hold up the first answer for so long: what counts is TCP.
constexpr auto UdpGrace = 10ms;
constexpr std::chrono::milliseconds FirstRenewPause = 4s;
constexpr std::chrono::milliseconds LongestRenewPause = 300s;
constexpr int OtherPorts = 3;

// Error codes of WANIPConnection:1 and :2.
constexpr int InvalidArguments = 402;
constexpr int ActionFailed = 501;
constexpr int NoSuchEntry = 714;
constexpr int ConflictInMapping = 718;
constexpr int SamePortsRequired = 724;
constexpr int OnlyPermanentLeases = 725;
constexpr int ConflictWithOther = 729;

std::uint32_t parseAddress(const std::string& text) {
    in_addr address{};
    return inet_pton(AF_INET, text.c_str(), &address) == 1 ? ntohl(address.s_addr) : 0;
}

SoapArguments entryName(std::uint16_t externalPort, bool tcp) {
    return {{"NewRemoteHost", ""},
            {"NewExternalPort", std::to_string(externalPort)},
            {"NewProtocol", tcp ? "TCP" : "UDP"}};
}

std::vector<std::uint16_t> portsToTry(const PortWish& wish) {
    std::vector<std::uint16_t> ports{wish.externalPort};
    std::random_device device;
    std::uniform_int_distribution<std::uint16_t> any(10000, 65533);
    for (int count = 0; count < OtherPorts; ++count) {
        ports.push_back(any(device));
    }
    // Last, for a router that maps no port to another one.
    ports.push_back(wish.internalPort);
    return ports;
}

}  // namespace

UpnpMapping::UpnpMapping(NatNetwork& network, const GatewayPlace& place, const PortWish& wish)
    : network_(network),
      place_(place),
      wish_(wish),
      search_(network, place,
              [this] {
                  if (!call_.exchange) {
                      tryNextLocation();
                  }
              }),
      externalPorts_(portsToTry(wish)) {
    search_.begin();
}

void UpnpMapping::recover(std::uint32_t internalAddress, std::vector<std::uint16_t> externalPorts) {
    recoveredAddress_ = internalAddress;
    externalPorts_ = std::move(externalPorts);
    recovering_ = true;
}

void UpnpMapping::ask() {
    phase_ = Phase::Asking;
    add(wish_.tcp);
}

void UpnpMapping::release() {
    if (phase_ != Phase::Releasing && phase_ != Phase::Over) {
        beginRemovals();
    }
}

void UpnpMapping::check() {
    if (phase_ == Phase::Mapped && !call_.exchange && !search_.isOpen()) {
        renewAt_ = network_.now();
    }
}

void UpnpMapping::wake() {
    const NatTime now = network_.now();
    if (call_.deadline <= now) {
        orderCut_ = true;
        answered(std::nullopt);
    }
    if (search_.nextWake() <= now) {
        search_.wake();
        if (!search_.isOpen() && !search_.hasLocation() && !call_.exchange) {
            stumble(phase_ == Phase::Mapped ? NatFailure::Silent : failure_, lastWord_);
        }
    }
    if (phase_ == Phase::Mapped && expiresAt_ <= now) {
        fail(NatFailure::Silent, "the lease ran out, the gateway does not answer");
    } else if (phase_ == Phase::Mapped && renewAt_ <= now) {
        renewAt_ = Never;
        if (renewPause_ == 0ms) {
            order("GetExternalIPAddress", {}, &UpnpMapping::onAddress);
        } else {
            search_.begin();
        }
    }
    if (removal_.next() <= now) {
        if (removal_.step(now, RemovalSchedule)) {
            sendRemovals();
        } else {
            withdrawn_ = false;
            endRemovals();
        }
    }
    settle();
}

NatTime UpnpMapping::nextWake() const {
    NatTime next = std::min({call_.deadline, search_.nextWake(), removal_.next()});
    if (phase_ == Phase::Mapped) {
        next = std::min({next, renewAt_, expiresAt_});
    }
    return phase_ == Phase::Asking ? std::min(next, settleAt_) : next;
}

MappingRecord UpnpMapping::record() const {
    MappingRecord record;
    record.protocol = protocol();
    record.router.address = place_.router;
    record.localAddress = place_.localAddress;
    record.internalPort = wish_.internalPort;
    record.externalPorts = externalPorts_;
    record.tcp = wish_.tcp;
    record.udp = wish_.udp;
    return record;
}

void UpnpMapping::tryNextLocation() {
    const auto location = search_.takeLocation();
    if (!location) {
        if (!search_.isOpen()) {
            stumble(phase_ == Phase::Mapped ? NatFailure::Silent : failure_, lastWord_);
        }
        return;
    }
    location_ = *location;
    start(location_.server, httpGet(location_),
          [this](const auto& response) { onDescription(response); });
}

void UpnpMapping::onDescription(const std::optional<HttpResponse>& response) {
    const auto service = response && response->status == 200
                             ? readUpnpDescription(response->body, location_)
                             : std::nullopt;
    if (!service) {
        failure_ = response ? NatFailure::Unsupported : NatFailure::Silent;
        lastWord_ = response ? "the router describes no gateway"
                             : "the router's description cannot be read";
        tryNextLocation();
        return;
    }
    service_ = service;
    if (recovering_) {
        search_.end();
        checkNextLeftover();
    } else {
        order("GetExternalIPAddress", {}, &UpnpMapping::onAddress);
    }
}

void UpnpMapping::onAddress(const SoapAnswer& answer) {
    const bool answers = answer.errorCode() >= 0;
    // A line that is down is no reason to give up a mapping.
    if (!answers || (!answer.isSuccess() && phase_ != Phase::Mapped)) {
        stumble(answers ? NatFailure::Refused : NatFailure::Silent,
                answers ? "it has no external address" : "the gateway does not answer");
        return;
    }
    search_.end();
    if (answer.isSuccess()) {
        externalAddress_ = parseAddress(answer.value("NewExternalIPAddress"));
    }
    if (phase_ == Phase::Probing) {
        phase_ = Phase::Ready;
    } else {
        add(wish_.tcp);
    }
}

void UpnpMapping::add(bool tcp) {
    SoapArguments arguments = entryName(externalPort(), tcp);
    arguments.emplace_back("NewInternalPort", std::to_string(wish_.internalPort));
    arguments.emplace_back("NewInternalClient", addressText(place_.localAddress));
    arguments.emplace_back("NewEnabled", "1");
    arguments.emplace_back("NewPortMappingDescription", "Zelvo");
    arguments.emplace_back("NewLeaseDuration",
                           permanent_ ? "0" : std::to_string(wish_.lifetime.count()));
    (tcp ? tcpHeld_ : udpHeld_) = true;
    order("AddPortMapping", arguments, tcp ? &UpnpMapping::onTcpAdded : &UpnpMapping::onUdpAdded);
}

void UpnpMapping::onTcpAdded(const SoapAnswer& answer) {
    if (answer.isSuccess()) {
        if (!wish_.udp) {
            conclude();
            return;
        }
        settleAt_ = network_.now() + UdpGrace;
        add(false);
        return;
    }
    tcpHeld_ = answer.errorCode() < 0;
    if (adaptTo(answer.errorCode())) {
        add(true);
    } else {
        stumble(answer.errorCode() > 0 ? NatFailure::Refused : NatFailure::Silent,
                answer.errorCode() > 0
                    ? "the gateway refuses with error " + std::to_string(answer.errorCode())
                    : "the gateway does not answer");
    }
}

void UpnpMapping::onUdpAdded(const SoapAnswer& answer) {
    udpHeld_ = answer.errorCode() <= 0;
    if (answer.isSuccess() || wish_.tcp) {
        grant_.udp = answer.isSuccess();
        conclude();
    } else if (adaptTo(answer.errorCode())) {
        add(false);
    } else {
        stumble(NatFailure::Refused,
                "the gateway refuses with error " + std::to_string(answer.errorCode()));
    }
}

/// True when another attempt, with what has been learnt, is worth it.
bool UpnpMapping::adaptTo(int errorCode) {
    if ((errorCode == OnlyPermanentLeases || errorCode == InvalidArguments) && !permanent_) {
        permanent_ = true;
        return true;
    }
    const std::size_t last = externalPorts_.size() - 1;
    if (errorCode == SamePortsRequired && portIndex_ != last) {
        portIndex_ = last;
        return true;
    }
    const bool taken = errorCode == ConflictInMapping || errorCode == ConflictWithOther ||
                       errorCode == ActionFailed;
    if (taken && portIndex_ + 1 < last) {
        ++portIndex_;
        return true;
    }
    return false;
}

/// The orders have all been answered.
void UpnpMapping::conclude() {
    const NatTime now = network_.now();
    settleAt_ = now;
    renewPause_ = 0ms;
    renewAt_ = now + wish_.lifetime / 2;
    expiresAt_ = permanent_ ? Never : now + wish_.lifetime;
    settle();
}

void UpnpMapping::settle() {
    if (phase_ == Phase::Asking && settleAt_ <= network_.now()) {
        phase_ = Phase::Mapped;
    }
    if (phase_ != Phase::Mapped) {
        return;
    }
    grant_.tcp = wish_.tcp;
    grant_.externalAddress = externalAddress_;
    grant_.externalPort = externalPort();
    grant_.lifetime = permanent_ ? 0s : wish_.lifetime;
}

void UpnpMapping::checkNextLeftover() {
    if (leftover_ == 2 * externalPorts_.size()) {
        phase_ = Phase::Releasing;
        removal_.begin(network_.now());
        wake();
        return;
    }
    order("GetSpecificPortMappingEntry",
          entryName(externalPorts_[leftover_ / 2], leftover_ % 2 == 0), &UpnpMapping::onLeftover);
}

void UpnpMapping::onLeftover(const SoapAnswer& answer) {
    if (answer.errorCode() < 0) {
        stumble(NatFailure::Silent, "the gateway does not answer");
        return;
    }
    // Somebody else may have the port by now.
    if (answer.isSuccess() &&
        answer.value("NewInternalPort") == std::to_string(wish_.internalPort) &&
        answer.value("NewInternalClient") == addressText(recoveredAddress_)) {
        removals_.push_back({leftover_ % 2 == 0, externalPorts_[leftover_ / 2]});
    }
    ++leftover_;
    checkNextLeftover();
}

void UpnpMapping::start(const Ipv4Endpoint& server, std::string request, HttpExchange::Done done) {
    call_ = {server, std::move(request), std::move(done)};
    sendCall();
}

void UpnpMapping::sendCall() {
    ++call_.tries;
    call_.deadline = network_.now() + CallLimit;
    call_.exchange = network_.exchange(call_.server, call_.request,
                                       [this](const auto& response) { answered(response); });
}

void UpnpMapping::order(std::string_view action, const SoapArguments& arguments,
                        OnAnswer onAnswer) {
    start(service_->control.server, soapRequest(*service_, action, arguments),
          [this, onAnswer](const auto& response) {
              (this->*onAnswer)(SoapAnswer(response.value_or(HttpResponse{})));
          });
}

void UpnpMapping::answered(const std::optional<HttpResponse>& response) {
    // Every order may be given twice without harm.
    if (!response && call_.tries < CallTries) {
        sendCall();
        return;
    }
    const Call call = std::move(call_);
    call_ = {};
    call.done(response);
}

void UpnpMapping::stumble(NatFailure failure, const std::string& why) {
    failure_ = failure;
    lastWord_ = why;
    if (phase_ == Phase::Probing && (search_.hasLocation() || search_.isOpen())) {
        if (search_.hasLocation()) {
            tryNextLocation();
        }
    } else if (phase_ == Phase::Mapped && failure != NatFailure::Refused) {
        // The gateway may have come back elsewhere: the first time it is looked for at once.
        search_.end();
        renewAt_ = network_.now() + (renewPause_ == 0ms ? 0ms : renewPause_);
        renewPause_ = std::clamp(renewPause_ * 2, FirstRenewPause, LongestRenewPause);
    } else {
        fail(failure, why);
    }
}

void UpnpMapping::fail(NatFailure failure, const std::string& why) {
    if (phase_ == Phase::Releasing || phase_ == Phase::Over) {
        return;
    }
    failure_ = failure;
    lastWord_ = why;
    withdrawn_ = !recovering_;
    beginRemovals();
}

void UpnpMapping::beginRemovals() {
    orderCut_ = orderCut_ || (call_.exchange && (tcpHeld_ || udpHeld_));
    call_ = {};
    search_.end();
    phase_ = Phase::Releasing;
    if (tcpHeld_) {
        removals_.push_back({true, externalPort()});
    }
    if (udpHeld_) {
        removals_.push_back({false, externalPort()});
    }
    removal_.begin(network_.now());
    wake();
}

void UpnpMapping::sendRemovals() {
    for (std::size_t index = 0; index < removals_.size(); ++index) {
        Removal& removal = removals_[index];
        if (removal.open) {
            removal.exchange = network_.exchange(
                service_->control.server,
                soapRequest(*service_, "DeletePortMapping",
                            entryName(removal.externalPort, removal.tcp)),
                [this, index](const auto& response) { removalAnswered(index, response); });
        }
    }
    if (removals_.empty()) {
        endRemovals();
    }
}

void UpnpMapping::removalAnswered(std::size_t index, const std::optional<HttpResponse>& response) {
    const SoapAnswer answer(response.value_or(HttpResponse{}));
    // What was ordered last may take effect only now; the second attempt finds it.
    const bool tooEarly = orderCut_ && removal_.sent() == 1 && !answer.isSuccess();
    if ((answer.isSuccess() || answer.errorCode() == NoSuchEntry) && !tooEarly) {
        removals_[index].open = false;
    }
    if (std::none_of(removals_.begin(), removals_.end(), [](const auto& r) { return r.open; })) {
        endRemovals();
    }
}

void UpnpMapping::endRemovals() {
    removal_.end();
    // The exchanges go with this object: one of them may be what calls.
    phase_ = Phase::Over;
}

}  // namespace zelvo::platform
