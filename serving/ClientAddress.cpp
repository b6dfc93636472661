#include "serving/ClientAddress.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <span>

namespace zelvo::serving {
namespace {

constexpr std::array<std::uint8_t, 12> MappedPrefix = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
constexpr std::size_t SubscriberBytes = 8;

}  // namespace

ClientAddress ClientAddress::ofIpv4(const std::uint8_t* bytes) {
    ClientAddress address;
    std::ranges::copy(MappedPrefix, address.bytes_.begin());
    std::copy_n(bytes, 4, address.bytes_.begin() + MappedPrefix.size());
    return address;
}

ClientAddress ClientAddress::ofIpv6(const std::uint8_t* bytes) {
    ClientAddress address;
    std::copy_n(bytes, address.bytes_.size(), address.bytes_.begin());
    return address;
}

std::optional<ClientAddress> ClientAddress::of(const sockaddr* address) {
    if (address->sa_family == AF_INET)
        return ofIpv4(reinterpret_cast<const std::uint8_t*>(
            &reinterpret_cast<const sockaddr_in*>(address)->sin_addr));
    if (address->sa_family == AF_INET6)
        return ofIpv6(reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr.s6_addr);
    return std::nullopt;
}

std::optional<ClientAddress> ClientAddress::parse(const std::string& text) {
    std::array<std::uint8_t, 16> bytes{};
    if (::inet_pton(AF_INET, text.c_str(), bytes.data()) == 1)
        return ofIpv4(bytes.data());
    if (::inet_pton(AF_INET6, text.c_str(), bytes.data()) == 1)
        return ofIpv6(bytes.data());
    return std::nullopt;
}

std::optional<ClientAddress> ClientAddress::ofPeer(int socket) {
    sockaddr_storage peer{};
    socklen_t size = sizeof peer;
    auto* address = reinterpret_cast<sockaddr*>(&peer);
    return ::getpeername(socket, address, &size) == 0 ? of(address) : std::nullopt;
}

bool ClientAddress::isIpv4() const {
    return std::ranges::equal(MappedPrefix, std::span(bytes_).first(MappedPrefix.size()));
}

std::string ClientAddress::text() const {
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (isIpv4())
        ::inet_ntop(AF_INET, bytes_.data() + MappedPrefix.size(), text.data(), text.size());
    else
        ::inet_ntop(AF_INET6, bytes_.data(), text.data(), text.size());
    return text.data();
}

std::string ClientAddress::budgetKey() const {
    const auto size = isIpv4() ? bytes_.size() : SubscriberBytes;
    return {reinterpret_cast<const char*>(bytes_.data()), size};
}

}  // namespace zelvo::serving
