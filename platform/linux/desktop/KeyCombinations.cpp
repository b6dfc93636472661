#include "platform/linux/desktop/KeyCombinations.h"

#include <xkbcommon/xkbcommon-keysyms.h>
#include <xkbcommon/xkbcommon.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <utility>

namespace zelvo::platform {

namespace {

using Keysym = std::uint32_t;

constexpr std::int32_t shiftFlag = 0x20000;
/// Of the X server's key codes, which are those of the kernel and 8.
constexpr xkb_keycode_t keyAboveTabCode = 49;

std::string lowerCase(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

std::optional<std::int32_t> modifierFlag(std::string_view name) {
    static const std::map<std::string, std::int32_t> flags{
        {"shift", shiftFlag}, {"ctrl", 0x40000},   {"control", 0x40000},
        {"primary", 0x40000}, {"ctl", 0x40000},    {"alt", 0x80000},
        {"mod1", 0x80000},    {"super", 0x100000}, {"mod4", 0x100000}};
    auto found = flags.find(lowerCase(name));
    return found == flags.end() ? std::nullopt : std::optional(found->second);
}

Keysym keysymOfName(const std::string& name) {
    return xkb_keysym_from_name(name.c_str(), XKB_KEYSYM_CASE_INSENSITIVE);
}

/// What the key sends without modifiers; 0 where the layout is not known.
Keysym keyAboveTab(const std::string& inputSource) {
    auto plus = std::min(inputSource.find('+'), inputSource.size());
    auto layout = inputSource.substr(0, plus);
    auto variant = inputSource.substr(std::min(plus + 1, inputSource.size()));
    std::unique_ptr<xkb_context, decltype(&xkb_context_unref)> context(
        xkb_context_new(XKB_CONTEXT_NO_FLAGS), xkb_context_unref);
    if (!context)
        return 0;
    xkb_context_set_log_level(context.get(), XKB_LOG_LEVEL_CRITICAL);
    xkb_rule_names names{.rules = "evdev",
                         .model = "pc105",
                         .layout = layout.empty() ? "us" : layout.c_str(),
                         .variant = variant.c_str(),
                         .options = ""};
    std::unique_ptr<xkb_keymap, decltype(&xkb_keymap_unref)> keymap(
        xkb_keymap_new_from_names(context.get(), &names, XKB_KEYMAP_COMPILE_NO_FLAGS),
        xkb_keymap_unref);
    const xkb_keysym_t* keysyms = nullptr;
    auto count =
        keymap ? xkb_keymap_key_get_syms_by_level(keymap.get(), keyAboveTabCode, 0, 0, &keysyms)
               : 0;
    return count > 0 ? keysyms[0] : 0;
}

/// A key by Qt's name of it, which is a character or a name that is mostly that of the keysym.
Keysym keysymOfQt(const std::string& key) {
    static const std::map<std::string, Keysym> names{{"pgup", XKB_KEY_Page_Up},
                                                     {"pgdown", XKB_KEY_Page_Down},
                                                     {"esc", XKB_KEY_Escape},
                                                     {"del", XKB_KEY_Delete},
                                                     {"ins", XKB_KEY_Insert},
                                                     {"enter", XKB_KEY_KP_Enter},
                                                     {"backtab", XKB_KEY_ISO_Left_Tab},
                                                     {"volume up", XKB_KEY_XF86AudioRaiseVolume},
                                                     {"volume down", XKB_KEY_XF86AudioLowerVolume},
                                                     {"volume mute", XKB_KEY_XF86AudioMute}};
    auto found = names.find(lowerCase(key));
    if (found != names.end())
        return found->second;
    if (key.size() == 1)
        return xkb_utf32_to_keysym(static_cast<unsigned char>(std::tolower(key[0])));
    return keysymOfName(key);
}

/// The key of the keypad that has the same character; 0 for the others.
Keysym onKeypad(Keysym key) {
    if (key == XKB_KEY_KP_Enter)
        return key;
    // The keypad's keysyms follow the characters.
    constexpr auto distance = XKB_KEY_KP_0 - XKB_KEY_0;
    auto isThere = (key >= XKB_KEY_asterisk && key <= XKB_KEY_9) || key == XKB_KEY_equal;
    return isThere ? key + distance : 0;
}

/// A combination has to have a key besides modifiers.
bool isModifier(Keysym key) {
    return key >= XKB_KEY_Shift_L && key <= XKB_KEY_Hyper_R;
}

}  // namespace

KeyCombinations::KeyCombinations(const PropertyList::Dictionary& keyboardTable,
                                 std::string inputSource)
    : inputSource_(std::move(inputSource)) {
    for (const auto& [name, entry] : keyboardTable) {
        const auto* code = entry.find("keycode");
        const auto* keysym = entry.find("keysym");
        if (!code || !keysym)
            continue;
        auto key = static_cast<Keysym>(keysym->int32Reading());
        // Readers take 32 for the space and 0 for nothing; the table has other codes for these two.
        if (key != 0 && !isModifier(key) && code->int32Reading() != 0 && code->int32Reading() != 32)
            keyCodes_.emplace(key, code->int32Reading());
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
    auto isAboveTab = lowerCase(text) == "above_tab";
    return combine(flags, isAboveTab ? keyAboveTab(inputSource_) : keysymOfName(std::string(text)));
}

std::optional<HotKey> KeyCombinations::fromQt(std::string_view text) const {
    std::int32_t flags = 0;
    auto isKeypad = false;
    for (auto plus = text.find('+'); plus != text.npos && plus > 0; plus = text.find('+')) {
        auto name = text.substr(0, plus);
        text.remove_prefix(plus + 1);
        if (name == "Num") {
            isKeypad = true;
            continue;
        }
        // Qt's Meta is the key that GTK calls Super.
        auto flag = modifierFlag(name == "Meta" ? "Super" : name);
        if (!flag)
            return std::nullopt;
        flags |= *flag;
    }
    auto key = keysymOfQt(std::string(text));
    return combine(flags, isKeypad ? onKeypad(key) : key);
}

std::optional<HotKey> KeyCombinations::combine(std::int32_t flags, Keysym key) const {
    // What the Tab key sends while Shift is held.
    if (key == XKB_KEY_ISO_Left_Tab) {
        key = XKB_KEY_Tab;
        flags |= shiftFlag;
    }
    auto found = keyCodes_.find(key);
    return found == keyCodes_.end() ? std::nullopt : std::optional(HotKey{found->second, flags});
}

}  // namespace zelvo::platform
