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
/// that only some keyboards have.
class KeyCombinations {
  public:
    /// From the keyboard table of the resources, whose root keys are names of keysyms.
    explicit KeyCombinations(const PropertyList::Dictionary& keyboardTable);

    /// As GTK writes it, "<Control><Alt>Left".
    std::optional<HotKey> fromGtk(std::string_view text) const;
    /// As Qt's portable text has it, "Meta+Ctrl+Left".
    std::optional<HotKey> fromQt(std::string_view text) const;

  private:
    std::optional<HotKey> combine(std::int32_t flags, std::string_view key) const;

    std::map<std::string, std::int32_t> keyCodes_;
};

}  // namespace zelvo::platform
