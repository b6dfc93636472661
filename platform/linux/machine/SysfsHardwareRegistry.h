#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/HardwareRegistry.h"

namespace zelvo::platform {

/// The names of the interfaces that default routes lead through, the best first; IPv4's come before
/// IPv6's. Any thread.
std::vector<std::string> interfacesOfDefaultRoutes();

/// The machine as its kernel describes it: "en0" is the interface of the best default route, else
/// the first physical one, that has an Ethernet address; the serial number and model are those of
/// DMI, else of the device tree.
class SysfsHardwareRegistry : public HardwareRegistry {
  public:
    using Interfaces = std::function<std::vector<std::string>()>;

    /// `root` stands before "/sys". `routed` is asked from any thread.
    explicit SysfsHardwareRegistry(std::string root = "",
                                   Interfaces routed = interfacesOfDefaultRoutes);

    /// Where no interface is "en0", no service matches; any other name is that of an interface.
    InterfaceMatch matchInterface(const std::string& bsdName) const override;
    DeviceTreeSearch searchDeviceTree(const std::string& property) const override;
    std::string machineModel() const override;

  private:
    /// Of which the first that has an address counts.
    std::vector<std::string> primaryInterfaces() const;
    std::optional<InterfaceService> service(const std::string& interface) const;

    const std::string root_;
    const Interfaces routed_;
};

}  // namespace zelvo::platform
