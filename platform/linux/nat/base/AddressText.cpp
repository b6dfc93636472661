#include <arpa/inet.h>

#include <array>

#include "platform/linux/nat/base/NatNetwork.h"

namespace zelvo::platform {

std::string addressText(std::uint32_t address) {
    const in_addr raw{htonl(address)};
    std::array<char, INET_ADDRSTRLEN> text{};
    return inet_ntop(AF_INET, &raw, text.data(), text.size());
}

std::string endpointText(const Ipv4Endpoint& endpoint) {
    return addressText(endpoint.address) + ":" + std::to_string(endpoint.port);
}

}  // namespace zelvo::platform
