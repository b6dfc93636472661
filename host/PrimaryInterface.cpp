#include "host/PrimaryInterface.h"

#include <string>

#include "platform/HardwareRegistry.h"

namespace zelvo {

std::optional<std::vector<std::byte>> primaryInterfaceAddress(
    const platform::HardwareRegistry& hardware,
    const std::function<void(std::string_view)>& diagnostic) {
    auto match = hardware.matchInterface("en0");
    if (!match.matchingDictionary) {
        diagnostic("IOBSDNameMatching() returned empty dictionary\n");
        return std::nullopt;
    }
    if (match.status != 0) {
        diagnostic("IOServiceGetMatchingServices() returned " + std::to_string(match.status) +
                   "\n");
        return std::nullopt;
    }
    std::optional<std::vector<std::byte>> address;
    for (auto& service : match.services) {
        if (service.parentStatus != 0)
            diagnostic("IORegistryGetParentEntry returned " + std::to_string(service.parentStatus) +
                       "\n");
        else
            address = std::move(service.macAddress);
    }
    return address;
}

}  // namespace zelvo
