#include "platform/linux/nat/codec/NatPmpCodec.h"

namespace zelvo::platform {

namespace {

constexpr std::uint8_t ResponseBit = 0x80;
constexpr std::size_t AddressRequestSize = 2;
constexpr std::size_t MapRequestSize = 12;
constexpr std::size_t ShortResponseSize = 8;
constexpr std::size_t AddressResponseSize = 12;
constexpr std::size_t MapResponseSize = 16;

bool isOpcode(std::uint8_t value) {
    return value <= 2;
}

void appendResponseHead(Bytes& bytes, std::uint8_t opcode, std::uint16_t result,
                        std::uint32_t epoch) {
    bytes.push_back(NatPmpVersion);
    bytes.push_back(static_cast<std::uint8_t>(opcode | ResponseBit));
    append16(bytes, result);
    append32(bytes, epoch);
}

}  // namespace

Bytes encode(const NatPmpRequest& request) {
    Bytes bytes{NatPmpVersion, static_cast<std::uint8_t>(request.opcode)};
    if (request.opcode != NatPmpOpcode::ExternalAddress) {
        append16(bytes, 0);
        append16(bytes, request.internalPort);
        append16(bytes, request.externalPort);
        append32(bytes, request.lifetime);
    }
    return bytes;
}

Bytes encode(const NatPmpResponse& response) {
    Bytes bytes;
    appendResponseHead(bytes, static_cast<std::uint8_t>(response.opcode), response.result,
                       response.epoch);
    if (response.opcode == NatPmpOpcode::ExternalAddress) {
        append32(bytes, response.externalAddress);
    } else {
        append16(bytes, response.internalPort);
        append16(bytes, response.externalPort);
        append32(bytes, response.lifetime);
    }
    return bytes;
}

Bytes encodeNatPmpVersionRefusal(std::uint8_t opcode, std::uint32_t epoch) {
    Bytes bytes;
    appendResponseHead(bytes, opcode, NatPmpUnsupportedVersion, epoch);
    return bytes;
}

std::optional<NatPmpRequest> decodeNatPmpRequest(ByteView datagram) {
    if (datagram.size() < AddressRequestSize || datagram[0] != NatPmpVersion ||
        !isOpcode(datagram[1])) {
        return std::nullopt;
    }
    NatPmpRequest request;
    request.opcode = static_cast<NatPmpOpcode>(datagram[1]);
    const bool map = request.opcode != NatPmpOpcode::ExternalAddress;
    if (datagram.size() != (map ? MapRequestSize : AddressRequestSize)) {
        return std::nullopt;
    }
    if (map) {
        request.internalPort = read16(datagram, 4);
        request.externalPort = read16(datagram, 6);
        request.lifetime = read32(datagram, 8);
    }
    return request;
}

std::optional<NatPmpResponse> decodeNatPmpResponse(ByteView datagram) {
    if (datagram.size() < ShortResponseSize || datagram[0] != NatPmpVersion ||
        !(datagram[1] & ResponseBit) || !isOpcode(datagram[1] & ~ResponseBit)) {
        return std::nullopt;
    }
    NatPmpResponse response;
    response.opcode = static_cast<NatPmpOpcode>(datagram[1] & ~ResponseBit);
    response.result = read16(datagram, 2);
    response.epoch = read32(datagram, 4);
    const bool map = response.opcode != NatPmpOpcode::ExternalAddress;
    if (datagram.size() == (map ? MapResponseSize : AddressResponseSize)) {
        if (map) {
            response.internalPort = read16(datagram, 8);
            response.externalPort = read16(datagram, 10);
            response.lifetime = read32(datagram, 12);
        } else {
            response.externalAddress = read32(datagram, 8);
        }
        return response;
    }
    if (datagram.size() == ShortResponseSize && response.result != NatPmpSuccess) {
        return response;
    }
    return std::nullopt;
}

}  // namespace zelvo::platform
