#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>

namespace zelvo::platform {

/// A process that is said to serve a port, known by its number and the time of its start. Any
/// thread.
class ServerProcess {
  public:
    /// `start` is in ticks since boot, as proc(5) has it; none to take the process as it is.
    ServerProcess(pid_t pid, std::optional<std::int64_t> start) : pid_(pid), start_(start) {}

    /// Whether the process itself holds the socket that takes connections to the TCP port on the
    /// IPv4 wildcard address. No, too, for another user's process, whose sockets are hidden. Sends
    /// nothing to the port.
    bool listensOn(std::uint16_t port) const;

  private:
    bool isRunning() const;
    bool holdsSocket(std::uint32_t inode) const;

    pid_t pid_;
    std::optional<std::int64_t> start_;
};

}  // namespace zelvo::platform
