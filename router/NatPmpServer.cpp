#include "router/NatPmpServer.h"

#include <algorithm>

#include "platform/linux/nat/codec/NatPmpCodec.h"

namespace zelvo::router {

using namespace platform;

namespace {

constexpr std::uint32_t LongestLease = 86400;
constexpr std::uint8_t ResponseBit = 0x80;

}  // namespace

Bytes NatPmpServer::answer(ByteView datagram, std::uint32_t asker, Clock::time_point now) {
    const auto epoch = static_cast<std::uint32_t>(
        std::chrono::duration_cast<std::chrono::seconds>(now - started_).count());
    if (datagram.size() >= 2 && datagram[0] != NatPmpVersion && !(datagram[1] & ResponseBit)) {
        return encodeNatPmpVersionRefusal(datagram[1], epoch);
    }
    const auto request = decodeNatPmpRequest(datagram);
    if (!request) {
        return {};
    }
    NatPmpResponse response;
    response.opcode = request->opcode;
    response.epoch = epoch;
    response.internalPort = request->internalPort;
    if (request->opcode == NatPmpOpcode::ExternalAddress) {
        response.externalAddress = table_.externalAddress();
        return encode(response);
    }
    const auto transport =
        request->opcode == NatPmpOpcode::MapTcp ? Transport::Tcp : Transport::Udp;
    const Endpoint internal{asker, request->internalPort};
    if (request->lifetime == 0) {
        table_.remove(transport, internal);
        return encode(response);
    }
    if (request->internalPort == 0) {
        response.result = NatPmpNotAuthorized;
        return encode(response);
    }
    response.lifetime = std::min(request->lifetime, LongestLease);
    response.externalPort = table_.map(transport, internal, request->externalPort,
                                       std::chrono::seconds(response.lifetime), now);
    if (response.externalPort == 0) {
        response.result = NatPmpOutOfResources;
        response.lifetime = 0;
    }
    return encode(response);
}

}  // namespace zelvo::router
