#include "snapshot/KeyboardTable.h"

#include <utility>

#include "platform/Bundle.h"
#include "platform/Log.h"
#include "platform/PropertyListReader.h"

namespace zelvo {

namespace {

std::int32_t memberOr0(const platform::PropertyList& entry, const char* key) {
    const auto* member = entry.find(key);
    return member ? member->int32Reading() : 0;
}

}  // namespace

KeyboardTable::KeyboardTable(const platform::PropertyListReader& reader,
                             const platform::Bundle& bundle, platform::Log& log)
    : reader_(reader), bundle_(bundle), log_(log) {}

void KeyboardTable::setCurrentKeyboardLayout(std::optional<std::string> identifier) {
    layout_ = std::move(identifier);
    rebuildKeyboard();
}

void KeyboardTable::rebuildKeyboard() {
    table_ =
        reader_.dictionaryWithContentsOfFile(bundle_.resourcePath() + "/KeycodeToKeysym.plist");
}

std::int32_t KeyboardTable::translateKeyCode(std::int32_t keyCode) const {
    if (table_) {
        for (const auto& [name, entry] : *table_)
            if (entry.dictionary() && memberOr0(entry, "keycode") == keyCode)
                return memberOr0(entry, "keysym");
    }
    log_.line("translateKeyCode: Couldn't fine equivalent for keyCode: " + std::to_string(keyCode));
    return 0;
}

void KeyboardTable::setKeyCodeToKeySymDictionnary(std::optional<Dictionary> table) {
    table_ = std::move(table);
}

}  // namespace zelvo
