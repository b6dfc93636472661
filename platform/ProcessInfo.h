#pragma once

#include <cstdint>
#include <optional>

namespace zelvo::platform {

struct OperatingSystemVersion {
    std::int64_t majorVersion = 0;
    std::int64_t minorVersion = 0;
    std::int64_t patchVersion = 0;
};

/// What the operating system says of itself. Any thread.
class ProcessInfo {
  public:
    virtual ~ProcessInfo() = default;
    /// None when it cannot be obtained.
    virtual std::optional<OperatingSystemVersion> operatingSystemVersion() const = 0;
};

}  // namespace zelvo::platform
