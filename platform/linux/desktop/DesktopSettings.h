#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>

namespace zelvo::platform {

/// A key combination as preference files have it.
struct HotKey {
    /// Virtual key code.
    std::int32_t keyCode = 0;
    /// Shift 0x20000, Control 0x40000, Option (Alt) 0x80000, Command (Super) 0x100000.
    std::int32_t flags = 0;
    bool operator==(const HotKey&) const = default;
};

/// What a desktop says of hot keys and of the screen's corners; nothing of either is what a desktop
/// says that is not known. Value type.
struct DesktopSettings {
    /// Numbers of hot keys in the preferences.
    enum HotKeyId { AllWindows = 32, ApplicationWindows = 33, Search = 64, Left = 79, Right = 81 };
    static constexpr std::array<HotKeyId, 5> hotKeyIds{AllWindows, ApplicationWindows, Search, Left,
                                                       Right};
    /// Actions of the screen's corners in the preferences.
    enum CornerAction {
        ShowAllWindows = 2,
        ShowApplicationWindows = 3,
        ShowDesktop = 4,
        LockScreen = 13
    };

    /// A number that is missing has no key.
    std::map<HotKeyId, HotKey> hotKeys;
    /// By "tl", "tr", "bl", "br".
    std::map<std::string, CornerAction> corners;
};

}  // namespace zelvo::platform
