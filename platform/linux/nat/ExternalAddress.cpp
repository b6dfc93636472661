#include "platform/linux/nat/ExternalAddress.h"

#include "platform/linux/nat/base/NatNetwork.h"

namespace zelvo::platform {

bool isBehindAnotherRouter(std::uint32_t address) {
    const auto isIn = [address](std::uint32_t network, int bits) {
        return address >> (32 - bits) == network >> (32 - bits);
    };
    return isIn(0x0a000000, 8) || isIn(0xac100000, 12) || isIn(0xc0a80000, 16) ||
           isIn(0x64400000, 10);
}

bool isNoExternalAddress(std::uint32_t address, std::uint32_t router) {
    constexpr std::uint32_t Loopback = 127;
    constexpr std::uint32_t FirstGroup = 224;
    const std::uint32_t first = address >> 24;
    return first == 0 || first >= FirstGroup || (first == Loopback && router >> 24 != Loopback);
}

std::string explainExternalAddress(std::uint32_t address) {
    if (address == 0) {
        return "the router is not connected to the internet";
    }
    if (isBehindAnotherRouter(address)) {
        return "the router's own address " + addressText(address) +
               " is not a public one: another router stands between it and the internet, and "
               "nobody can come in from there";
    }
    return {};
}

}  // namespace zelvo::platform
