#include <arpa/inet.h>

#include <array>
#include <charconv>

#include "platform/linux/nat/base/NatNetwork.h"
#include "platform/linux/nat/codec/PortControl.h"

namespace zelvo::platform {

std::string addressText(std::uint32_t address) {
    const in_addr raw{htonl(address)};
    std::array<char, INET_ADDRSTRLEN> text{};
    return inet_ntop(AF_INET, &raw, text.data(), text.size());
}

std::string endpointText(const Ipv4Endpoint& endpoint) {
    return addressText(endpoint.address) + ":" + std::to_string(endpoint.port);
}

std::optional<Ipv4Endpoint> parseEndpoint(const std::string& text) {
    const std::size_t colon = text.find(':');
    Ipv4Endpoint endpoint{0, PortControlPort};
    in_addr address{};
    if (inet_pton(AF_INET, text.substr(0, colon).c_str(), &address) != 1) {
        return std::nullopt;
    }
    endpoint.address = ntohl(address.s_addr);
    if (colon != std::string::npos) {
        const char* end = text.data() + text.size();
        const auto [last, error] = std::from_chars(text.data() + colon + 1, end, endpoint.port);
        if (error != std::errc() || last != end || endpoint.port == 0) {
            return std::nullopt;
        }
    }
    return endpoint;
}

}  // namespace zelvo::platform
