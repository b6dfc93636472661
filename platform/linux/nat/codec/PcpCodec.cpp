#include "platform/linux/nat/codec/PcpCodec.h"

#include <algorithm>

namespace zelvo::platform {

namespace {

constexpr std::uint8_t PcpResponseBit = 0x80;
constexpr std::size_t HeaderSize = 24;
constexpr std::size_t MapSize = 36;
// Protocol numbers of IANA.
constexpr std::uint8_t Tcp = 6;
constexpr std::uint8_t Udp = 17;

void appendAddress(Bytes& bytes, std::uint32_t address) {
    bytes.insert(bytes.end(), 10, 0);
    append16(bytes, 0xffff);
    append32(bytes, address);
}

/// The IPv4 address at `at`; 0 for one that is not IPv4.
std::uint32_t readAddress(ByteView bytes, std::size_t at) {
    const ByteView prefix = bytes.subspan(at, 10);
    const bool mapped = std::all_of(prefix.begin(), prefix.end(), [](auto b) { return b == 0; }) &&
                        read16(bytes, at + 10) == 0xffff;
    return mapped ? read32(bytes, at + 12) : 0;
}

void appendMap(Bytes& bytes, const PcpMap& map) {
    bytes.insert(bytes.end(), map.nonce.begin(), map.nonce.end());
    append32(bytes, static_cast<std::uint32_t>(map.transport == Transport::Tcp ? Tcp : Udp) << 24);
    append16(bytes, map.internalPort);
    append16(bytes, map.externalPort);
    appendAddress(bytes, map.externalAddress);
}

bool readMap(ByteView bytes, PcpMap& map) {
    if (bytes.size() < HeaderSize + MapSize) {
        return false;
    }
    const std::uint8_t protocol = bytes[HeaderSize + 12];
    if (protocol != Tcp && protocol != Udp) {
        return false;
    }
    std::copy_n(bytes.begin() + HeaderSize, map.nonce.size(), map.nonce.begin());
    map.transport = protocol == Tcp ? Transport::Tcp : Transport::Udp;
    map.internalPort = read16(bytes, HeaderSize + 16);
    map.externalPort = read16(bytes, HeaderSize + 18);
    map.externalAddress = readAddress(bytes, HeaderSize + 20);
    return true;
}

/// The checks that requests and responses share.
bool isPacket(ByteView datagram, std::uint8_t responseBit) {
    return datagram.size() >= HeaderSize && datagram.size() <= PcpMaximumSize &&
           datagram.size() % 4 == 0 && datagram[0] == PcpVersion &&
           (datagram[1] & PcpResponseBit) == responseBit && (datagram[1] & ~PcpResponseBit) <= 1;
}

}  // namespace

Bytes encode(const PcpRequest& request) {
    Bytes bytes{PcpVersion, static_cast<std::uint8_t>(request.opcode), 0, 0};
    append32(bytes, request.lifetime);
    appendAddress(bytes, request.clientAddress);
    if (request.opcode == PcpOpcode::Map) {
        appendMap(bytes, request.map);
    }
    return bytes;
}

Bytes encode(const PcpResponse& response) {
    Bytes bytes{PcpVersion,
                static_cast<std::uint8_t>(PcpResponseBit | static_cast<int>(response.opcode)), 0,
                static_cast<std::uint8_t>(response.result)};
    append32(bytes, response.lifetime);
    append32(bytes, response.epoch);
    bytes.insert(bytes.end(), 12, 0);
    if (response.opcode == PcpOpcode::Map) {
        appendMap(bytes, response.map);
    }
    return bytes;
}

std::optional<PcpResponse> decodePcpResponse(ByteView datagram) {
    if (!isPacket(datagram, PcpResponseBit)) {
        return std::nullopt;
    }
    PcpResponse response;
    response.opcode = static_cast<PcpOpcode>(datagram[1] & ~PcpResponseBit);
    response.result = static_cast<PcpResult>(datagram[3]);
    response.lifetime = read32(datagram, 4);
    response.epoch = read32(datagram, 8);
    if (response.opcode == PcpOpcode::Map && !readMap(datagram, response.map)) {
        return std::nullopt;
    }
    return response;
}

std::optional<PcpRequest> decodePcpRequest(ByteView datagram) {
    if (!isPacket(datagram, 0)) {
        return std::nullopt;
    }
    PcpRequest request;
    request.opcode = static_cast<PcpOpcode>(datagram[1]);
    request.lifetime = read32(datagram, 4);
    request.clientAddress = readAddress(datagram, 8);
    if (request.opcode == PcpOpcode::Map && !readMap(datagram, request.map)) {
        return std::nullopt;
    }
    return request;
}

bool isVersionRefusal(ByteView datagram, std::uint8_t asked) {
    // Result 1 is "unsupported version" in both protocols, and its 16 bits end where PCP has its 8.
    return datagram.size() >= 8 && datagram.size() <= PcpMaximumSize && datagram[0] != asked &&
           (datagram[1] & PcpResponseBit) && read16(datagram, 2) == 1;
}

}  // namespace zelvo::platform
