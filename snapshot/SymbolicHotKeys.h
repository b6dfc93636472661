#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/PropertyList.h"

namespace zelvo::platform {
class Bundle;
class ProcessInfo;
class PropertyListReader;
}  // namespace zelvo::platform

namespace zelvo {

struct ModifierKey {
    /// A bit of the modifier flags in preference files.
    std::int32_t plistValue;
    /// Keysym sent for it (X11/keysymdef.h).
    std::int32_t value;
};

/// Shift, Control, Option and Command. Viewers expect Option as Meta_L and Command as Alt_L.
inline constexpr std::array<ModifierKey, 4> modifierKeyTable{{
    {0x20000, 0xFFE1},   // Shift_L
    {0x40000, 0xFFE3},   // Control_L
    {0x80000, 0xFFE7},   // Meta_L
    {0x100000, 0xFFE9},  // Alt_L
}};

/// Numbers of the hot keys that viewers are told of: all windows, windows of the application, one
/// workspace to the left and to the right, search.
inline constexpr std::array<std::int32_t, 5> forwardedHotKeyIDs{32, 33, 79, 81, 64};

/// By hot-key number in decimal: keysyms of the modifiers, then the key's character code or, for a
/// key without a character, its virtual key code.
using SymbolicHotKeys = std::map<std::string, std::vector<std::int32_t>>;

/// The keysyms of the modifiers whose bits are set, in the table's order.
std::vector<std::int32_t> modifierKeysFromFlags(std::int32_t flags);

/// The keys of one hot key of a preference file. Empty when it is absent (null), no dictionary or
/// without members. Anything missing or of a wrong kind inside it reads as 0; a "parameters" array
/// of fewer than three elements counts as missing, because nothing tells which element it lacks.
std::vector<std::int32_t> keysFromSymbolicHotKey(const platform::PropertyList* hotKey);

/// The forwarded hot keys that resolve: those of the user's preferences, each one that is unusable
/// there taken from the default file in the resources of the bundle (by default the application's
/// own) for the running system's version. Empty when the user has no hot-key preferences at all.
SymbolicHotKeys readSymbolicHotKeys(const platform::PropertyListReader& reader,
                                    const platform::Bundle& bundle,
                                    const platform::ProcessInfo& processInfo,
                                    std::optional<std::string> bundleIdentifier = std::nullopt);

}  // namespace zelvo
