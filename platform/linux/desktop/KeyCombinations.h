#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/PropertyList.h"
#include "platform/linux/desktop/DesktopSettings.h"

namespace zelvo::platform {

/// Turns the desktops' ways of writing a key combination into modifier flags and a virtual key
/// code. None for what has no equivalent there: a modifier alone, a sequence of combinations, a key
/// that only some keyboards have. Value type.
class KeyCombinations {
  public:
    /// From the keyboard table of the resources; `inputSource` is the layout in which the key above
    /// Tab is looked up, such as "de+nodeadkeys", or empty for the usual one.
    KeyCombinations(const PropertyList::Dictionary& keyboardTable, std::string inputSource);

    /// As GTK writes it, "<Control><Alt>Left".
    std::optional<HotKey> fromGtk(std::string_view text) const;
    /// As Qt's portable text has it, "Meta+Ctrl+Left".
    std::optional<HotKey> fromQt(std::string_view text) const;

  private:
    using Keysym = std::uint32_t;

    std::optional<HotKey> combine(std::int32_t flags, Keysym key) const;

    std::map<Keysym, std::int32_t> keyCodes_;
    const std::string inputSource_;
};

}  // namespace zelvo::platform
