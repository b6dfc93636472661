#include "opener/facts/Place.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <memory>
#include <optional>
#include <string_view>

namespace zelvo::opener {

namespace {

constexpr std::uint16_t FirstUnprivilegedPort = 1024;

std::optional<std::uint32_t> numberOf(const std::string& address) {
    in_addr parsed{};
    if (::inet_pton(AF_INET, address.c_str(), &parsed) != 1)
        return std::nullopt;
    return ntohl(parsed.s_addr);
}

bool isIn(std::uint32_t address, std::uint32_t network, int bits) {
    return address >> (32 - bits) == network >> (32 - bits);
}

/// Of this computer, of the cable it hangs on, of groups, of nobody.
bool leadsNowhere(std::uint32_t address) {
    return isIn(address, 0, 8) || isIn(address, 0x7F000000, 8) || isIn(address, 0xA9FE0000, 16) ||
           address >= 0xE0000000;
}

/// RFC 1918, and between a provider and its customers (RFC 6598).
bool isPrivate(std::uint32_t address) {
    return isIn(address, 0x0A000000, 8) || isIn(address, 0xAC100000, 12) ||
           isIn(address, 0xC0A80000, 16) || isIn(address, 0x64400000, 10);
}

std::uint32_t numberIn(const sockaddr* address) {
    return ntohl(reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr);
}

}  // namespace

bool isOwnNetwork(std::uint32_t address) {
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0)
        return false;
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> all(first, &::freeifaddrs);
    for (const auto* each = first; each; each = each->ifa_next) {
        const bool isUsable = each->ifa_addr && each->ifa_addr->sa_family == AF_INET &&
                              each->ifa_netmask && (each->ifa_flags & IFF_UP) != 0;
        if (isUsable && ((address ^ numberIn(each->ifa_addr)) & numberIn(each->ifa_netmask)) == 0)
            return true;
    }
    return false;
}

bool mayBeSentTo(const std::string& address, std::uint16_t port, const IsOwnNetwork& isOwn) {
    const auto number = numberOf(address);
    if (!number || leadsNowhere(*number))
        return false;
    return !isPrivate(*number) || (port >= FirstUnprivilegedPort && isOwn(*number));
}

bool isOnLoopback(const std::string& origin) {
    constexpr std::string_view scheme = "https://";
    if (!origin.starts_with(scheme))
        return false;
    const auto place = origin.substr(scheme.size());
    if (place.starts_with("[::1]"))
        return true;
    const auto name = place.substr(0, place.find_first_of(":/"));
    const auto number = numberOf(name);
    return name == "localhost" || (number && isIn(*number, 0x7F000000, 8));
}

}  // namespace zelvo::opener
