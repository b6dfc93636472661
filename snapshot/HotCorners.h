#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/PropertyList.h"

namespace zelvo::platform {
class Bundle;
class PropertyListReader;
}  // namespace zelvo::platform

namespace zelvo {

struct HotCorner {
    /// The corner's action as the preferences have it, a number as a rule.
    platform::PropertyList value;
    /// Keysyms in the order of modifierKeyTable.
    std::vector<std::int32_t> modifiers;
};

/// The user's Dock preference file; none when there is no home folder.
std::optional<std::string> dockPreferencesPath(const platform::Bundle& bundle);

/// The screen corners that have an action, whatever it is, by the action's preference key, such as
/// "wvous-tl-corner".
std::map<std::string, HotCorner> readHotCorners(const platform::PropertyListReader& reader,
                                                const platform::Bundle& bundle);

}  // namespace zelvo
