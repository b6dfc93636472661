#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/DynamicStore.h"
#include "platform/Platform.h"

namespace zelvo {

class SystemInformationDelegate;

/// The names and the hardware address by which this host is known, with notices when a name
/// changes. Main thread only.
class SystemInformation {
  public:
    explicit SystemInformation(const platform::Platform& platform);
    /// The delegate must outlive this object. It is not owned: whoever wants the notices holds this
    /// object as a member, so that owning it back would keep both alive for ever.
    SystemInformation(const platform::Platform& platform, SystemInformationDelegate* delegate);
    SystemInformation(const SystemInformation&) = delete;
    SystemInformation& operator=(const SystemInformation&) = delete;

    /// A fresh reading of the primary interface's address as 12 lower-case hex digits; empty when
    /// the reading has not exactly 6 bytes. Diagnostics go to the log.
    static std::string macAddressHexString(const platform::HardwareRegistry& hardware,
                                           platform::Log& log);

    /// The user-visible name of the computer; never absent.
    const std::string& computerName() const { return computerName_; }
    /// The name on the local link, fully qualified: it ends in ".local.".
    const std::string& localHostname() const { return localHostname_; }
    /// As read at construction; empty when there was none.
    const std::vector<std::byte>& macAddress() const { return macAddress_; }

    /// The TCP port of the SSH service, worked out at each call. A configured number counts modulo
    /// 65536; 22 when nothing is configured or the configured name is unknown, 65535 when what is
    /// configured is neither number nor text.
    std::uint16_t sshListeningPort() const;
    /// The TCP port of "vnc-server" in the services database, else 5900.
    std::uint16_t vncListeningPort() const;

  private:
    static std::vector<std::byte> _copyMACAddress(const platform::HardwareRegistry& hardware,
                                                  platform::Log& log);
    std::string _findComputerName() const;
    std::string findLocalHostname() const;
    void _dynamicStoreChanged(const std::vector<std::string>& changedKeys);

    const platform::DynamicStore& dynamicStore_;
    const platform::PropertyListReader& propertyLists_;
    const platform::ServicesDatabase& services_;
    SystemInformationDelegate* delegate_ = nullptr;
    std::string computerName_;
    std::string localHostname_;
    std::string computerNameKey_;
    std::string localHostnameKey_;
    std::vector<std::byte> macAddress_;
    // Last, so that no notice arrives at an object that is half gone.
    std::unique_ptr<platform::DynamicStoreConnection> store_;
};

}  // namespace zelvo
