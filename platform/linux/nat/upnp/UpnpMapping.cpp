#include "platform/linux/nat/upnp/UpnpMapping.h"

#include <random>
#include <utility>

#include "platform/linux/nat/codec/NatPmpCodec.h"
#include "platform/linux/nat/codec/PcpCodec.h"
#include "platform/linux/nat/upnp/SoapMessage.h"

namespace zelvo::platform {

namespace {

using namespace std::chrono_literals;

/// The UDP half may hold up the first answer for so long: what counts is TCP.
constexpr auto UdpGrace = 10ms;
constexpr std::chrono::milliseconds FirstRenewPause = 4s;
constexpr std::chrono::milliseconds LongestRenewPause = 300s;
/// How long a changed external address may go unseen where the gateway does not tell.
constexpr auto AddressPause = 300s;
/// So much lies between two checks that the router's announcements cause.
constexpr auto AnnouncedPause = 5s;
constexpr int OtherPorts = 3;

// Error codes of WANIPConnection:1 and :2.
constexpr int InvalidArguments = 402;
constexpr int ActionFailed = 501;
constexpr int ConflictInMapping = 718;
constexpr int SamePortsRequired = 724;
constexpr int OnlyPermanentLeases = 725;
constexpr int ConflictWithOther = 729;

bool isTaken(int errorCode) {
    return errorCode == ConflictInMapping || errorCode == ConflictWithOther ||
           errorCode == ActionFailed;
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
                  if (!calls_.isOpen()) {
                      tryNextLocation();
                  }
              }),
      calls_(network, place.localAddress),
      externalPorts_(portsToTry(wish)),
      removals_(network, place.localAddress) {
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
    if (calls_.isOpen() || search_.isOpen()) {
        checkAgain_ = true;
    } else if (phase_ == Phase::Mapped) {
        renewAt_ = halfLife_ = network_.now();
    }
}

void UpnpMapping::announced(ByteView datagram) {
    // A router that speaks more than one protocol may announce itself in one of them alone.
    if (phase_ == Phase::Mapped && renewPause_ == 0ms && renewAt_ != Never &&
        (decodePcpResponse(datagram) || decodeNatPmpResponse(datagram))) {
        renewAt_ = halfLife_ =
            std::min(renewAt_, std::max(network_.now(), concludedAt_ + AnnouncedPause));
    }
}

void UpnpMapping::wake() {
    const NatTime now = network_.now();
    calls_.wake();
    if (search_.nextWake() <= now) {
        search_.wake();
        if (!search_.isOpen() && !search_.hasLocation() && !calls_.isOpen()) {
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
    removals_.wake();
    settle();
}

NatTime UpnpMapping::nextWake() const {
    NatTime next = std::min({calls_.nextWake(), search_.nextWake(), removals_.nextWake()});
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
    calls_.start(location_.server, httpGet(location_),
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
        stumble(answers ? NatFailure::Disconnected : NatFailure::Silent,
                answers ? "it has no external address" : "the gateway does not answer");
        return;
    }
    search_.end();
    const std::uint32_t before = externalAddress_;
    if (answer.isSuccess()) {
        externalAddress_ = answer.address("NewExternalIPAddress");
    }
    const NatTime now = network_.now();
    if (phase_ == Phase::Probing) {
        phase_ = Phase::Ready;
    } else if (renewPause_ == 0ms && externalAddress_ == before && now < halfLife_) {
        scheduleRenewal();
    } else {
        add(wish_.tcp);
    }
}

void UpnpMapping::add(bool tcp) {
    SoapArguments arguments = soapEntryName(externalPort(), tcp);
    arguments.emplace_back("NewInternalPort", std::to_string(wish_.internalPort));
    arguments.emplace_back("NewInternalClient", addressText(place_.localAddress));
    arguments.emplace_back("NewEnabled", "1");
    arguments.emplace_back("NewPortMappingDescription", "Zelvo");
    arguments.emplace_back("NewLeaseDuration",
                           permanent_ ? "0" : std::to_string(wish_.lifetime.count()));
    addingTcp_ = tcp;
    wasHeld_ = std::exchange(held(tcp), true);
    order("AddPortMapping", arguments, &UpnpMapping::onAdded);
}

void UpnpMapping::onAdded(const SoapAnswer& answer) {
    refusal_ = answer.errorCode();
    if (isTaken(refusal_) && wasHeld_) {
        // Perhaps by ourselves: some gateways do not grant anew what they hold.
        order("GetSpecificPortMappingEntry", soapEntryName(externalPort(), addingTcp_),
              &UpnpMapping::onEntry);
        return;
    }
    // What was granted before may be there still.
    held(addingTcp_) = refusal_ <= 0 || wasHeld_;
    concludeAdd(refusal_);
}

void UpnpMapping::onEntry(const SoapAnswer& answer) {
    const bool ours = leadsTo(answer, place_.localAddress);
    held(addingTcp_) = ours || !(answer.isSuccess() || isAbsent(answer.errorCode()));
    concludeAdd(ours ? 0 : refusal_);
}

void UpnpMapping::concludeAdd(int errorCode) {
    if (!addingTcp_) {
        grant_.udp = errorCode == 0;
    }
    if (errorCode == 0 && addingTcp_ && wish_.udp) {
        settleAt_ = network_.now() + UdpGrace;
        add(false);
    } else if (errorCode == 0 || (!addingTcp_ && wish_.tcp)) {
        conclude();
    } else if (adaptTo(errorCode)) {
        add(addingTcp_);
    } else {
        stumble(errorCode > 0 ? NatFailure::Refused : NatFailure::Silent,
                errorCode > 0 ? "the gateway refuses with error " + std::to_string(errorCode)
                              : "the gateway does not answer");
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
        moveTo(last);
        return true;
    }
    if (isTaken(errorCode) && portIndex_ + 1 < last) {
        moveTo(portIndex_ + 1);
        return true;
    }
    return false;
}

void UpnpMapping::moveTo(std::size_t portIndex) {
    renounceHeld();
    portIndex_ = portIndex;
}

/// The orders have all been answered.
void UpnpMapping::conclude() {
    const NatTime now = network_.now();
    settleAt_ = concludedAt_ = now;
    renewPause_ = 0ms;
    halfLife_ = now + wish_.lifetime / 2;
    expiresAt_ = permanent_ ? Never : now + wish_.lifetime;
    scheduleRenewal();
    settle();
}

void UpnpMapping::scheduleRenewal() {
    const NatTime now = network_.now();
    if (std::exchange(checkAgain_, false)) {
        halfLife_ = now;
    }
    renewAt_ = std::min(halfLife_, now + AddressPause);
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

bool UpnpMapping::leadsTo(const SoapAnswer& answer, std::uint32_t internalAddress) const {
    return answer.isSuccess() &&
           answer.value("NewInternalPort") == std::to_string(wish_.internalPort) &&
           answer.value("NewInternalClient") == addressText(internalAddress);
}

void UpnpMapping::checkNextLeftover() {
    if (leftover_ == 2 * externalPorts_.size()) {
        beginRemovals();
        return;
    }
    order("GetSpecificPortMappingEntry",
          soapEntryName(externalPorts_[leftover_ / 2], leftover_ % 2 == 0),
          &UpnpMapping::onLeftover);
}

void UpnpMapping::onLeftover(const SoapAnswer& answer) {
    if (answer.errorCode() < 0) {
        stumble(NatFailure::Silent, "the gateway does not answer");
        return;
    }
    // Somebody else may have the port by now.
    if (leadsTo(answer, recoveredAddress_)) {
        removals_.add(leftover_ % 2 == 0, externalPorts_[leftover_ / 2]);
    } else if (!answer.isSuccess() && !isAbsent(answer.errorCode())) {
        withdrawn_ = false;
    }
    ++leftover_;
    checkNextLeftover();
}

void UpnpMapping::order(std::string_view action, const SoapArguments& arguments,
                        OnAnswer onAnswer) {
    calls_.start(service_->control.server, soapRequest(*service_, action, arguments),
                 [this, onAnswer](const auto& response) {
                     (this->*onAnswer)(SoapAnswer(response.value_or(HttpResponse{})));
                 });
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

/// What is held is to be removed in the end.
void UpnpMapping::renounceHeld() {
    for (const bool tcp : {true, false}) {
        if (std::exchange(held(tcp), false)) {
            removals_.add(tcp, externalPort());
        }
    }
}

void UpnpMapping::beginRemovals() {
    const bool cutOff = calls_.hasCutOff() || (calls_.isOpen() && (tcpHeld_ || udpHeld_));
    calls_.drop();
    search_.end();
    phase_ = Phase::Releasing;
    renounceHeld();
    removals_.begin(service_, cutOff);
}

}  // namespace zelvo::platform
