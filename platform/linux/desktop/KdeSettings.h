#pragma once

#include <string>

#include "platform/linux/desktop/DesktopSettings.h"

namespace zelvo::platform {

class KeyCombinations;

/// What KDE keeps in kxkbrc, kglobalshortcutsrc and kwinrc of the folder, and which of the layouts
/// its keyboard service on the bus (an address, or empty for the session's bus) names as the
/// current one. Waits for that service at most 0.3 s.
DesktopSettings readKdeSettings(const std::string& configHome, const std::string& busAddress,
                                const KeyCombinations& combinations);

}  // namespace zelvo::platform
