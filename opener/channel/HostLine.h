#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/linux/base/FileDescriptor.h"
#include "sealing/SealedChannel.h"

namespace zelvo::opener {

enum class LineEnd : std::uint8_t {
    /// The host said goodbye, sealed.
    Goodbye,
    // No connection came about.
    NoRoute,
    Refused,
    TimedOut,
    Unreachable,
    /// The relay has no place for one more, or too much to do.
    Busy,
    // There was one, and whoever is there did not prove to be the host.
    /// It says nothing, or hangs up.
    Silent,
    /// It speaks something else.
    NotOurs,
    KeyRefused,
    NotTheHost,
    // The host had proven itself.
    /// What came is nothing that a host says: somebody changed it, or the host is broken.
    Broken,
    /// It ended without a goodbye.
    Cut,
};

struct LineEnding {
    LineEnd end = LineEnd::Cut;
    /// Why, where the host said goodbye.
    sealing::Farewell farewell{};
    /// Of Cut: by which the host lets us back in, where we were inside.
    std::optional<sealing::ReturnSecret> returnSecret{};
};

/// One sealed connection to a host. Its destruction ends it, with a goodbye where there is somebody
/// to say it to. Main thread only.
class HostLine {
  public:
    struct Target {
        std::string address;
        std::uint16_t port = 0;
        sealing::ChannelKey key;
        /// A helper's name (sealing::isHelperName).
        std::string name;
        /// From the line before, where that was cut.
        std::optional<sealing::ReturnSecret> comesBackBy{};
        /// The relay to go to instead, "name" or "name:port", and to ask for `port`; else empty.
        std::string relay{};
        /// The authorities of whom a relay's certificate may be; empty for the system's own.
        std::string certificateFile{};
    };
    /// Called on the main thread, later, and never after the line's destruction, which each of them
    /// may bring about.
    struct Listener {
        /// The host has proven to have the key; its digits.
        std::function<void(const std::string& digits)> opened;
        std::function<void(const sealing::Standing&)> stands;
        /// The host has proven to be the one that we came back to.
        std::function<void()> isBack;
        /// The host speaks RFB now; this end speaks it with security type None.
        std::function<void(platform::FileDescriptor)> rfbBegan;
        /// Last, and only where the line was not destroyed first.
        std::function<void(const LineEnding&)> ended;
    };
    using Factory = std::function<std::unique_ptr<HostLine>(const Target&, Listener)>;

    virtual ~HostLine() = default;
};

}  // namespace zelvo::opener
