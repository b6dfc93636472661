#pragma once

#include <optional>
#include <string>

#include "platform/linux/desktop/DesktopSettings.h"

namespace zelvo::platform {

class Log;

/// The preference files of hot keys and screen corners, com.apple.symbolichotkeys.plist and
/// com.apple.dock.plist, which stand for the desktop's own settings. Main thread only.
class DesktopPreferences {
  public:
    /// No files are written where the folder is empty. The log outlives this object.
    DesktopPreferences(std::string folder, Log& log);

    /// Makes the files say what the settings say. A file that would say nothing is removed: without
    /// settings, which is a desktop that is not known, only one that was written here.
    void write(const std::optional<DesktopSettings>& settings);

  private:
    void replace(const std::string& name, const std::optional<std::string>& content,
                 bool isKnownDesktop);

    const std::string folder_;
    Log& log_;
};

}  // namespace zelvo::platform
