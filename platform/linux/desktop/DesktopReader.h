#pragma once

#include <optional>
#include <string>

#include "platform/linux/desktop/DesktopSettings.h"

namespace zelvo::platform {

class KeyCombinations;

/// One desktop's settings. From its construction on it tells of changes, on the thread and in the
/// main context of its construction, until its destruction.
class DesktopReader {
  public:
    virtual ~DesktopReader() = default;

    /// The keyboard layout now; none where the desktop leaves it to the system.
    virtual std::optional<std::string> inputSource() const = 0;
    /// None where there are no settings of this desktop that could be read.
    virtual std::optional<DesktopSettings> settings(const KeyCombinations& combinations) const = 0;
};

}  // namespace zelvo::platform
