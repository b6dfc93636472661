#pragma once

#include <string>

#include "platform/HardwareRegistry.h"

namespace zelvo::platform {

/// The machine as /proc and /sys describe it: "en0" is the interface of the default route, the
/// serial number and model are those of DMI, else of the device tree.
class SysfsHardwareRegistry : public HardwareRegistry {
  public:
    /// `root` stands before "/proc" and "/sys".
    explicit SysfsHardwareRegistry(std::string root = "");

    /// Without a default route no service matches; any other name is that of an interface.
    InterfaceMatch matchInterface(const std::string& bsdName) const override;
    DeviceTreeSearch searchDeviceTree(const std::string& property) const override;
    std::string machineModel() const override;

  private:
    std::string primaryInterface() const;

    const std::string root_;
};

}  // namespace zelvo::platform
