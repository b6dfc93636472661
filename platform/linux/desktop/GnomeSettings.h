#pragma once

#include <string_view>

#include "platform/linux/desktop/DesktopSettings.h"

namespace zelvo::platform {

class KeyCombinations;

/// What GNOME keeps in GSettings. They are read by the program gsettings: their library would stay
/// in memory with a thread and a bus connection of its own, while the program takes 20 ms. Waits
/// for it at most 0.3 s; then there are none.
std::optional<DesktopSettings> readGnomeSettings(const KeyCombinations& combinations);

/// From what `gsettings list-recursively` prints; what is missing or half-written is left out.
DesktopSettings gnomeSettingsOf(std::string_view listing, const KeyCombinations& combinations);

}  // namespace zelvo::platform
