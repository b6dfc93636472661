#include "serving/ProxyHeader.h"

#include <cstdint>
#include <string>

namespace zelvo::serving {
namespace {

constexpr std::string_view Signature("\r\n\r\n\0\r\nQUIT\n", 12);
constexpr std::size_t FixedLength = 16;
/// With its line end, for two IPv6 addresses and ports.
constexpr std::size_t LongestLine = 107;

std::uint8_t byteAt(std::string_view bytes, std::size_t at) {
    return static_cast<std::uint8_t>(bytes[at]);
}

std::string_view word(std::string_view& line) {
    const auto end = line.find(' ');
    const auto first = line.substr(0, end);
    line.remove_prefix(end == line.npos ? line.size() : end + 1);
    return first;
}

ProxyHeader malformed() {
    return {ProxyHeader::State::Malformed, 0, {}};
}

ProxyHeader readLine(std::string_view bytes) {
    const auto end = bytes.substr(0, LongestLine).find("\r\n");
    if (end == bytes.npos)
        return bytes.size() < LongestLine ? ProxyHeader() : malformed();
    ProxyHeader header{ProxyHeader::State::Complete, end + 2, {}};
    auto line = bytes.substr(0, end);
    word(line);
    const auto family = word(line);
    if (family == "UNKNOWN")
        return header;
    header.client = ClientAddress::parse(std::string(word(line)));
    const bool isIpv4 = family == "TCP4";
    if ((!isIpv4 && family != "TCP6") || !header.client || header.client->isIpv4() != isIpv4)
        return malformed();
    return header;
}

ProxyHeader readBlock(std::string_view bytes) {
    if (bytes.size() < FixedLength)
        return {};
    const auto length = FixedLength + (byteAt(bytes, 14) << 8 | byteAt(bytes, 15));
    const auto command = byteAt(bytes, 12);
    if (length > ProxyHeader::Longest || (command != 0x20 && command != 0x21))
        return malformed();
    if (bytes.size() < length)
        return {};
    ProxyHeader header{ProxyHeader::State::Complete, length, {}};
    constexpr std::uint8_t local = 0x20;
    if (command == local)
        return header;
    const auto* addresses = reinterpret_cast<const std::uint8_t*>(bytes.data()) + FixedLength;
    switch (byteAt(bytes, 13)) {
        case 0x11:  // TCP over IPv4: two addresses of 4 bytes, two ports
            if (length < FixedLength + 12)
                return malformed();
            header.client = ClientAddress::ofIpv4(addresses);
            return header;
        case 0x21:  // the same over IPv6
            if (length < FixedLength + 36)
                return malformed();
            header.client = ClientAddress::ofIpv6(addresses);
            return header;
        default:
            return header;
    }
}

}  // namespace

ProxyHeader ProxyHeader::read(std::string_view bytes) {
    constexpr std::string_view line = "PROXY ";
    if (bytes.starts_with(Signature))
        return readBlock(bytes);
    if (bytes.starts_with(line))
        return readLine(bytes);
    return Signature.starts_with(bytes) || line.starts_with(bytes) ? ProxyHeader() : malformed();
}

}  // namespace zelvo::serving
