#pragma once

#include <optional>
#include <string>

#include "platform/linux/desktop/DesktopSettings.h"

namespace zelvo::platform {

class Log;

/// The preference files of hot keys and screen corners, com.apple.symbolichotkeys.plist and
/// com.apple.dock.plist, which stand for the desktop's own settings. Only files that carry this
/// object's mark are ever replaced or removed. One thread.
class DesktopPreferences {
  public:
    /// No files are written where the folder is empty. The log outlives this object.
    DesktopPreferences(std::string folder, Log& log);

    /// Makes the files say what the settings say: all hot keys that are forwarded, those without a
    /// key too, so that no default of another desktop steps in for one. Without settings the file
    /// has no hot keys, and the defaults stand, which are those of the distribution's own desktop.
    void write(const std::optional<DesktopSettings>& settings);

  private:
    void replace(const std::string& name, const std::optional<std::string>& content);

    const std::string folder_;
    Log& log_;
};

}  // namespace zelvo::platform
