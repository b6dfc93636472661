#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace zelvo::platform {
class AddressParser;
class Application;
class Bundle;
class HardwareRegistry;
class Log;
class MainQueue;
class MessageDigest;
class ProcessTable;
class PropertyListReader;
class ServicesDatabase;
class SocketTable;
class UserDefaults;
class Workspace;
}  // namespace zelvo::platform

namespace zelvo {

/// Questions about the running system. No state: every call works from scratch, on any thread save
/// where one of the services given wants the main thread.
class KVSystemInformation {
  public:
    /// By process name; each value has one entry, "pid".
    using ProcessMap = std::map<std::string, std::map<std::string, std::int64_t>>;

    KVSystemInformation() = delete;

    // Network services. A listing that cannot be taken leaves one log line and answers no.

    /// Whether a TCP socket listens on exactly the port of the IPv4 wildcard address.
    static bool isListeningOnPort(const platform::SocketTable& sockets, platform::Log& log,
                                  std::uint16_t port);
    /// Whether the line of an established TCP connection mentions the port, be it the local or the
    /// foreign one, or part of a longer number.
    static bool establishedConnectionOnPort(const platform::SocketTable& sockets,
                                            platform::Log& log, std::uint16_t port);

    /// The SSH service's TCP port: a configured number from 1 to 65535, or the port of the
    /// configured service name, else 22.
    static std::int32_t sshdListeningPort(const platform::PropertyListReader& reader,
                                          const platform::ServicesDatabase& services);
    /// The TCP port of "vnc-server" in the services database, else 5900.
    static std::int32_t vncListeningPort(const platform::ServicesDatabase& services);

    /// Whether the SSH service listens.
    static bool isRemoteLoginEnabled(const platform::SocketTable& sockets,
                                     const platform::PropertyListReader& reader,
                                     const platform::ServicesDatabase& services,
                                     platform::Log& log);
    /// Whether the VNC service listens.
    static bool isScreenSharingRunning(const platform::SocketTable& sockets,
                                       const platform::ServicesDatabase& services,
                                       platform::Log& log);
    /// Whether a connection is established on the VNC service's port.
    static bool screenSharingConnectionEstablished(const platform::SocketTable& sockets,
                                                   const platform::ServicesDatabase& services,
                                                   platform::Log& log);
    /// Whether viewers may ask for permission; false when the setting is missing.
    static bool isScreenSharingReqPermEnabled(const platform::PropertyListReader& reader);

    // Processes

    /// Every running process; of several with one name the last in the kernel's order. Empty when
    /// the table cannot be read.
    static ProcessMap processList(const platform::ProcessTable& processes);

    // The machine

    /// The primary interface's hardware address as the registry has it, none when unreadable.
    /// Diagnostics go to standard error.
    static std::optional<std::vector<std::byte>> MACAddress(
        const platform::HardwareRegistry& hardware, platform::Log& log);
    /// The address in lower-case hex pairs joined by colons; none when absent or empty.
    static std::optional<std::string> MACAddressDisplayString(
        const platform::HardwareRegistry& hardware, platform::Log& log);
    /// The machine's serial number: "null" when it has none, empty when it cannot be read. Of each
    /// of its two parts at most 63 characters count.
    static std::string computerSerialNumber(const platform::HardwareRegistry& hardware);
    /// The MD5 digest (RFC 1321) of the text up to its first NUL, as 32 upper-case hex digits.
    static std::string md5(const platform::MessageDigest& digest, const std::string& text);
    /// The model's identifier, "0" when unknown.
    static std::string machineModel(const platform::HardwareRegistry& hardware);
    /// Whether the text is an IPv4 address of four decimal numbers; false for none and empty.
    static bool isIpAddressValid(const platform::AddressParser& addresses,
                                 const std::optional<std::string>& text);

    // The desktop: main thread only

    /// Asks the system's settings window to quit, if it is open, and does not wait for it.
    static void closeSystemPreferences(platform::Workspace& workspace);
    /// The stored preference; false when absent.
    static bool shoudDockIconBeHidden(const platform::UserDefaults& defaults,
                                      const platform::Bundle& bundle);
    /// Applies the stored preference; the argument plays no part. Hidden: the application comes to
    /// the front at the main queue's next turn.
    static void hideDockIcon(const platform::UserDefaults& defaults, const platform::Bundle& bundle,
                             platform::Application& application, platform::MainQueue& mainQueue,
                             bool hide);
};

}  // namespace zelvo
