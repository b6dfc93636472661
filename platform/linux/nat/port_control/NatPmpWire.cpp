#include "platform/linux/nat/port_control/NatPmpWire.h"

#include "platform/linux/nat/codec/NatPmpCodec.h"
#include "platform/linux/nat/codec/PcpCodec.h"

namespace zelvo::platform {

namespace {

std::string refusalText(std::uint16_t result) {
    switch (result) {
        case NatPmpSuccess:
            return {};
        case NatPmpNotAuthorized:
            return "port mapping is switched off";
        case NatPmpNetworkFailure:
            return "it has no external address";
        case NatPmpOutOfResources:
            return "it has no room for another mapping";
        default:
            return "it refuses with result " + std::to_string(result);
    }
}

}  // namespace

Bytes NatPmpWire::probe() const {
    return encode(NatPmpRequest{});
}

Bytes NatPmpWire::map(Transport transport, std::uint16_t externalPort,
                      std::chrono::seconds lifetime) const {
    NatPmpRequest request;
    request.opcode = transport == Transport::Tcp ? NatPmpOpcode::MapTcp : NatPmpOpcode::MapUdp;
    request.internalPort = internalPort_;
    // RFC 6886 3.4: a withdrawal carries external port 0.
    request.externalPort = lifetime.count() == 0 ? 0 : externalPort;
    request.lifetime = static_cast<std::uint32_t>(lifetime.count());
    return encode(request);
}

std::optional<PortControlAnswer> NatPmpWire::read(ByteView datagram) const {
    PortControlAnswer answer;
    if (isVersionRefusal(datagram, NatPmpVersion)) {
        answer.kind = PortControlAnswer::Kind::WrongVersion;
        return answer;
    }
    const auto response = decodeNatPmpResponse(datagram);
    if (!response) {
        return std::nullopt;
    }
    answer.epoch = response->epoch;
    answer.refusal = refusalText(response->result);
    if (response->result == NatPmpUnsupportedVersion ||
        response->result == NatPmpUnsupportedOpcode) {
        answer.failure = NatFailure::Unsupported;
    } else if (response->result == NatPmpNetworkFailure) {
        answer.failure = NatFailure::Disconnected;
    }
    answer.mayPass =
        response->result == NatPmpNetworkFailure || response->result == NatPmpOutOfResources;
    if (response->opcode == NatPmpOpcode::ExternalAddress) {
        answer.externalAddress = response->externalAddress;
        return answer;
    }
    answer.kind = PortControlAnswer::Kind::Map;
    // The short form of a refusal does not say which port it means.
    if (response->internalPort != internalPort_ &&
        !(response->result != NatPmpSuccess && response->internalPort == 0)) {
        return std::nullopt;
    }
    answer.transport = response->opcode == NatPmpOpcode::MapTcp ? Transport::Tcp : Transport::Udp;
    answer.externalPort = response->externalPort;
    if (answer.refusal.empty()) {
        answer.lifetime = std::chrono::seconds(response->lifetime);
    }
    return answer;
}

bool NatPmpWire::isContinuous(const PortControlEpoch& last, const PortControlEpoch& now) const {
    // RFC 6886 3.6: at least 7/8 of the time that we measured, less two seconds.
    const auto elapsed = std::chrono::duration_cast<std::chrono::seconds>(now.heard - last.heard);
    return std::int64_t{now.epoch} >= std::int64_t{last.epoch} + elapsed.count() * 7 / 8 - 2;
}

std::chrono::milliseconds NatPmpWire::renewAfter(std::chrono::milliseconds left) {
    return left / 2;
}

RetrySchedule NatPmpWire::schedule() const {
    return {std::chrono::milliseconds(250), 9};
}

}  // namespace zelvo::platform
