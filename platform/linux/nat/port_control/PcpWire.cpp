#include "platform/linux/nat/port_control/PcpWire.h"

#include "platform/linux/nat/codec/NatPmpCodec.h"

namespace zelvo::platform {

namespace {

std::string refusalText(PcpResult result) {
    switch (result) {
        case PcpResult::Success:
            return {};
        case PcpResult::NotAuthorized:
            return "port mapping is not allowed";
        case PcpResult::NetworkFailure:
            return "it has no external address";
        case PcpResult::NoResources:
        case PcpResult::UserExceededQuota:
            return "it has no room for another mapping";
        case PcpResult::CannotProvideExternal:
            return "it cannot provide the external port";
        case PcpResult::AddressMismatch:
            return "another router stands between it and this host";
        default:
            return "it refuses with result " + std::to_string(static_cast<int>(result));
    }
}

}  // namespace

PcpNonces PcpWire::makeNonces() {
    std::random_device device;
    PcpNonces nonces;
    for (PcpNonce* nonce : {&nonces.tcp, &nonces.udp}) {
        for (auto& byte : *nonce) {
            byte = static_cast<std::uint8_t>(device());
        }
    }
    return nonces;
}

Bytes PcpWire::probe() const {
    PcpRequest request;
    request.clientAddress = clientAddress_;
    return encode(request);
}

Bytes PcpWire::map(Transport transport, std::uint16_t externalPort,
                   std::chrono::seconds lifetime) const {
    PcpRequest request;
    request.opcode = PcpOpcode::Map;
    request.lifetime = static_cast<std::uint32_t>(lifetime.count());
    request.clientAddress = clientAddress_;
    request.map.nonce = nonce(transport);
    request.map.transport = transport;
    request.map.internalPort = internalPort_;
    // RFC 6887 15: a withdrawal names neither external address nor port.
    request.map.externalPort = lifetime.count() == 0 ? 0 : externalPort;
    return encode(request);
}

std::optional<PortControlAnswer> PcpWire::read(ByteView datagram) const {
    PortControlAnswer answer;
    if (isVersionRefusal(datagram, PcpVersion)) {
        answer.kind = PortControlAnswer::Kind::WrongVersion;
        return answer;
    }
    const auto response = decodePcpResponse(datagram);
    if (!response) {
        return std::nullopt;
    }
    answer.epoch = response->epoch;
    if (response->result == PcpResult::NetworkFailure) {
        answer.failure = NatFailure::Disconnected;
    }
    answer.mayPass =
        response->result == PcpResult::NetworkFailure || response->result == PcpResult::NoResources;
    if (response->opcode == PcpOpcode::Announce) {
        // A router that knows no ANNOUNCE has still shown that it speaks PCP.
        if (response->result == PcpResult::UnsupportedVersion) {
            answer.kind = PortControlAnswer::Kind::WrongVersion;
        } else if (response->result != PcpResult::UnsupportedOpcode) {
            answer.refusal = refusalText(response->result);
        }
        return answer;
    }
    const PcpMap& map = response->map;
    if (map.nonce != nonce(map.transport) || map.internalPort != internalPort_) {
        return std::nullopt;
    }
    answer.kind = PortControlAnswer::Kind::Map;
    answer.refusal = refusalText(response->result);
    if (response->result == PcpResult::UnsupportedOpcode) {
        answer.failure = NatFailure::Unsupported;
    }
    answer.transport = map.transport;
    answer.externalPort = map.externalPort;
    answer.externalAddress = map.externalAddress;
    answer.lifetime = std::chrono::seconds(response->lifetime);
    return answer;
}

bool PcpWire::isContinuous(const PortControlEpoch& last, const PortControlEpoch& now) const {
    // RFC 6887 8.5.
    const std::int64_t server = std::int64_t{now.epoch} - std::int64_t{last.epoch};
    const std::int64_t client =
        std::chrono::duration_cast<std::chrono::seconds>(now.heard - last.heard).count();
    return server >= -1 && client + 2 >= server - server / 16 && server + 2 >= client - client / 16;
}

std::chrono::milliseconds PcpWire::renewAfter(std::chrono::milliseconds left) {
    // RFC 6887 11.2.1: so that a router that restarted does not hear all its clients at once.
    std::uniform_int_distribution<std::int64_t> between(left.count() / 2, left.count() * 5 / 8);
    return std::chrono::milliseconds(between(spread_));
}

RetrySchedule PcpWire::schedule() const {
    // The RFC's first wait of 3 s serves carriers with thousands of clients. This router is one hop
    // away and the user waits: the pace of NAT-PMP, which goes to the same port.
    return {std::chrono::milliseconds(250), 9};
}

}  // namespace zelvo::platform
