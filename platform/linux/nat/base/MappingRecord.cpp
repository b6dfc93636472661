#include "platform/linux/nat/base/MappingRecord.h"

#include <arpa/inet.h>

#include <algorithm>
#include <sstream>

namespace zelvo::platform {

namespace {

constexpr std::size_t MostPorts = 8;

std::string hexText(const PcpNonces& nonces) {
    std::string text;
    for (const PcpNonce* nonce : {&nonces.tcp, &nonces.udp}) {
        for (const std::uint8_t byte : *nonce) {
            constexpr const char* Digits = "0123456789abcdef";
            text += Digits[byte >> 4];
            text += Digits[byte & 15];
        }
    }
    return text;
}

bool parseHex(const std::string& text, PcpNonces& nonces) {
    const auto digit = [](char c) { return c <= '9' ? c - '0' : c - 'a' + 10; };
    if (text.size() != 48 || text.find_first_not_of("0123456789abcdef") != std::string::npos) {
        return false;
    }
    for (std::size_t index = 0; index < 24; ++index) {
        const auto byte =
            static_cast<std::uint8_t>(digit(text[2 * index]) << 4 | digit(text[2 * index + 1]));
        (index < 12 ? nonces.tcp[index] : nonces.udp[index - 12]) = byte;
    }
    return true;
}

bool parseAddress(const std::string& text, std::uint32_t& address) {
    in_addr parsed{};
    const bool good = inet_pton(AF_INET, text.c_str(), &parsed) == 1;
    address = ntohl(parsed.s_addr);
    return good;
}

}  // namespace

bool MappingRecord::covers(const MappingRecord& other) const {
    const auto isMine = [this](std::uint16_t port) {
        return std::find(externalPorts.begin(), externalPorts.end(), port) != externalPorts.end();
    };
    // UPnP names a mapping by its external port, the others by its internal one.
    return protocol == other.protocol && router == other.router &&
           localAddress == other.localAddress && internalPort == other.internalPort &&
           nonces == other.nonces && tcp >= other.tcp && udp >= other.udp &&
           (protocol != "UPnP" ||
            std::all_of(other.externalPorts.begin(), other.externalPorts.end(), isMine));
}

std::string MappingRecord::text() const {
    std::ostringstream out;
    out << protocol << ' ' << addressText(router.address) << ' ' << router.port << ' '
        << addressText(localAddress) << ' ' << internalPort << ' ' << tcp << ' ' << udp << ' '
        << writtenAt << ' ' << hexText(nonces);
    for (const std::uint16_t port : externalPorts) {
        out << ' ' << port;
    }
    return out.str();
}

std::optional<MappingRecord> MappingRecord::parse(const std::string& line) {
    std::istringstream in(line);
    MappingRecord record;
    std::string router;
    std::string local;
    std::string nonces;
    in >> record.protocol >> router >> record.router.port >> local >> record.internalPort >>
        record.tcp >> record.udp >> record.writtenAt >> nonces;
    if (!in || !parseAddress(router, record.router.address) ||
        !parseAddress(local, record.localAddress) || !parseHex(nonces, record.nonces) ||
        record.internalPort == 0) {
        return std::nullopt;
    }
    std::uint16_t port = 0;
    while (in >> port && record.externalPorts.size() < MostPorts) {
        record.externalPorts.push_back(port);
    }
    return record;
}

}  // namespace zelvo::platform
