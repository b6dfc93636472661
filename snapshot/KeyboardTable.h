#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/PropertyList.h"

namespace zelvo::platform {
class Bundle;
class Log;
class PropertyListReader;
}  // namespace zelvo::platform

namespace zelvo {

/// Turns the virtual key codes of preference files into keysyms (X11/keysymdef.h), by one table for
/// all layouts from the application's resources. Main thread only.
class KeyboardTable {
  public:
    using Dictionary = platform::PropertyList::Dictionary;

    /// Without layout and table. The services must outlive this object.
    KeyboardTable(const platform::PropertyListReader& reader, const platform::Bundle& bundle,
                  platform::Log& log);

    /// Stores the identifier and reads the table anew, also when the identifier is the same.
    void setCurrentKeyboardLayout(std::optional<std::string> identifier);

    /// Reads the table anew; without a readable resource there is none.
    void rebuildKeyboard();

    /// The keysym of the key code, of one of them when several entries have it. Without an entry 0
    /// and a log line. Entries that are no dictionaries match nothing.
    std::int32_t translateKeyCode(std::int32_t keyCode) const;

    /// Identifier of the input source that was last set.
    const std::optional<std::string>& currentKeyboardLayout() const { return layout_; }

    /// The table as read. The key of an entry means nothing; the entry's "keycode" and "keysym" do,
    /// each 0 when missing.
    const std::optional<Dictionary>& keyCodeToKeySymDictionnary() const { return table_; }
    void setKeyCodeToKeySymDictionnary(std::optional<Dictionary> table);

  private:
    const platform::PropertyListReader& reader_;
    const platform::Bundle& bundle_;
    platform::Log& log_;
    std::optional<std::string> layout_;
    std::optional<Dictionary> table_;
};

}  // namespace zelvo
