#include "platform/linux/desktop/KeyCombinations.h"

#include <algorithm>
#include <cctype>

namespace zelvo::platform {

namespace {

std::string lowerCase(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

std::optional<std::int32_t> modifierFlag(std::string_view name) {
    static const std::map<std::string, std::int32_t> flags{
        {"shift", 0x20000},   {"ctrl", 0x40000},   {"control", 0x40000},
        {"primary", 0x40000}, {"ctl", 0x40000},    {"alt", 0x80000},
        {"mod1", 0x80000},    {"super", 0x100000}, {"mod4", 0x100000}};
    auto found = flags.find(lowerCase(name));
    return found == flags.end() ? std::nullopt : std::optional(found->second);
}

/// Other names of keys, in lower case, and the names in the keyboard table.
const std::map<std::string, std::string>& otherNames() {
    static const std::map<std::string, std::string> names{{"prior", "page_up"},
                                                          {"pgup", "page_up"},
                                                          {"next", "page_down"},
                                                          {"pgdown", "page_down"},
                                                          {"esc", "escape"},
                                                          {"del", "delete"},
                                                          {"quoteleft", "grave"},
                                                          {"quoteright", "apostrophe"},
                                                          {"`", "grave"},
                                                          {"-", "minus"},
                                                          {"=", "equal"},
                                                          {"[", "bracketleft"},
                                                          {"]", "bracketright"},
                                                          {";", "semicolon"},
                                                          {"'", "apostrophe"},
                                                          {"\\", "backslash"},
                                                          {",", "comma"},
                                                          {".", "period"},
                                                          {"/", "slash"},
                                                          {"volume up", "xf86audioraisevolume"},
                                                          {"volume down", "xf86audiolowervolume"},
                                                          {"volume mute", "xf86audiomute"}};
    return names;
}

/// A combination has to have a key besides modifiers.
bool isModifier(const std::string& key) {
    return key.ends_with("_l") || key.ends_with("_r") || key == "caps_lock";
}

}  // namespace

KeyCombinations::KeyCombinations(const PropertyList::Dictionary& keyboardTable) {
    for (const auto& [name, entry] : keyboardTable) {
        const auto* code = entry.find("keycode");
        auto key = lowerCase(name);
        if (code && !isModifier(key))
            keyCodes_.emplace(std::move(key), code->int32Reading());
    }
}

std::optional<HotKey> KeyCombinations::fromGtk(std::string_view text) const {
    std::int32_t flags = 0;
    while (text.starts_with('<')) {
        auto end = text.find('>');
        auto flag = end == text.npos ? std::nullopt : modifierFlag(text.substr(1, end - 1));
        if (!flag)
            return std::nullopt;
        flags |= *flag;
        text.remove_prefix(end + 1);
    }
    return combine(flags, text);
}

std::optional<HotKey> KeyCombinations::fromQt(std::string_view text) const {
    std::int32_t flags = 0;
    for (auto plus = text.find('+'); plus != text.npos && plus > 0; plus = text.find('+')) {
        auto name = text.substr(0, plus);
        if (name == "Num")
            return std::nullopt;
        // Qt's Meta is the key that GTK calls Super.
        auto flag = modifierFlag(name == "Meta" ? "Super" : name);
        if (!flag)
            return std::nullopt;
        flags |= *flag;
        text.remove_prefix(plus + 1);
    }
    return combine(flags, text);
}

std::optional<HotKey> KeyCombinations::combine(std::int32_t flags, std::string_view key) const {
    auto name = lowerCase(key);
    if (auto other = otherNames().find(name); other != otherNames().end())
        name = other->second;
    auto found = keyCodes_.find(name);
    // Readers take 32 for the space and 0 for nothing: U and A cannot be told.
    if (found == keyCodes_.end() || found->second == 0 || found->second == 32)
        return std::nullopt;
    return HotKey{found->second, flags};
}

}  // namespace zelvo::platform
