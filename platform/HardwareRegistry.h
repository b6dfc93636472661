#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zelvo::platform {

/// One network interface that matched, seen from its controller.
struct InterfaceService {
    /// 0 when the controller was reached, else the registry's status.
    std::int32_t parentStatus = 0;
    /// The controller's hardware address; none when it has no such property.
    std::optional<std::vector<std::byte>> macAddress;
};

struct InterfaceMatch {
    /// False when no query for the name could be built.
    bool matchingDictionary = true;
    /// 0 when the query was answered.
    std::int32_t status = 0;
    std::vector<InterfaceService> services;
};

struct DeviceTreeSearch {
    /// False when the registry, or its root, cannot be opened.
    bool opened = true;
    bool found = false;
    /// The property's bytes; none when it is not data.
    std::optional<std::vector<std::byte>> data;
};

/// Facts about the machine's hardware, read afresh at every call. Any thread.
class HardwareRegistry {
  public:
    virtual ~HardwareRegistry() = default;

    /// The primary network interface is asked for as "en0".
    virtual InterfaceMatch matchInterface(const std::string& bsdName) const = 0;
    /// Searches the whole device tree for a property such as "serial-number".
    virtual DeviceTreeSearch searchDeviceTree(const std::string& property) const = 0;
    /// The model's identifier; empty when there is none.
    virtual std::string machineModel() const = 0;
};

}  // namespace zelvo::platform
