#include "server/screen/wlroots/WlrootsKeyboard.h"

#include <virtual-keyboard-unstable-v1.h>
#include <wayland-client-protocol.h>
#include <xkbcommon/xkbcommon.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include "server/screen/wlroots/EventTime.h"
#include "server/screen/wlroots/SharedMemory.h"

namespace zelvo::server {

namespace {

/// Keycodes of X and XKB are those of the kernel and so much more.
constexpr std::uint32_t firstCode = 8;
/// X programs know no higher ones.
constexpr std::uint32_t lastCode = 255;

/// Without the keys of multimedia keyboards, which are worth more as spare ones.
std::string describe(const std::string& spare) {
    return "xkb_keymap { xkb_keycodes { include \"evdev\" }; xkb_types { include \"complete\" };"
           "xkb_compat { include \"complete\" }; xkb_symbols { include \"pc+us\" " +
           spare + " }; };";
}

}  // namespace

void WlrootsKeyboard::FreeXkb::operator()(xkb_context* context) const {
    xkb_context_unref(context);
}
void WlrootsKeyboard::FreeXkb::operator()(xkb_keymap* keymap) const {
    xkb_keymap_unref(keymap);
}
void WlrootsKeyboard::FreeXkb::operator()(xkb_state* state) const {
    xkb_state_unref(state);
}

WlrootsKeyboard::WlrootsKeyboard(WlrootsConnection& wayland)
    : wayland_(wayland),
      keyboard_(zwp_virtual_keyboard_manager_v1_create_virtual_keyboard(wayland.keyboards(),
                                                                        wayland.seat())),
      context_(xkb_context_new(XKB_CONTEXT_NO_FLAGS)) {
    xkb_context_set_log_level(context_.get(), XKB_LOG_LEVEL_CRITICAL);
    keymap_.reset(xkb_keymap_new_from_string(context_.get(), describe("").c_str(),
                                             XKB_KEYMAP_FORMAT_TEXT_V1,
                                             XKB_KEYMAP_COMPILE_NO_FLAGS));
    if (!keymap_)
        return;
    state_.reset(xkb_state_new(keymap_.get()));
    for (auto code = lastCode; code > firstCode; --code) {
        const char* name = xkb_keymap_key_get_name(keymap_.get(), code);
        if (name && xkb_keymap_num_layouts_for_key(keymap_.get(), code) == 0)
            spare_.push_back({code, name, XKB_KEY_NoSymbol});
    }
    hand();
}

WlrootsKeyboard::~WlrootsKeyboard() {
    while (!held_.empty())
        key(held_.begin()->first, false);
    wayland_.flush();
}

bool WlrootsKeyboard::hand() {
    std::string meanings;
    for (const auto& spare : spare_) {
        std::array<char, 64> name{};
        if (spare.keysym != XKB_KEY_NoSymbol &&
            xkb_keysym_get_name(spare.keysym, name.data(), name.size()) > 0)
            meanings += "key <" + spare.name + "> { [ " + name.data() + " ] };";
    }
    const Xkb<xkb_keymap> whole(
        xkb_keymap_new_from_string(context_.get(), describe(meanings).c_str(),
                                   XKB_KEYMAP_FORMAT_TEXT_V1, XKB_KEYMAP_COMPILE_NO_FLAGS));
    if (!whole)
        return false;
    const std::unique_ptr<char, decltype(&std::free)> text(
        xkb_keymap_get_as_string(whole.get(), XKB_KEYMAP_FORMAT_TEXT_V1), std::free);
    const auto size = std::strlen(text.get()) + 1;
    const auto memory = SharedMemory::make(size);
    if (!memory)
        return false;
    std::memcpy(memory->data(), text.get(), size);
    zwp_virtual_keyboard_v1_keymap(keyboard_.get(), WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1,
                                   memory->descriptor(), static_cast<std::uint32_t>(size));
    // What was in force is forgotten with the old one.
    told_ = {};
    tell(modifiers());
    return true;
}

WlrootsKeyboard::Modifiers WlrootsKeyboard::modifiers() const {
    return {xkb_state_serialize_mods(state_.get(), XKB_STATE_MODS_DEPRESSED),
            xkb_state_serialize_mods(state_.get(), XKB_STATE_MODS_LATCHED),
            xkb_state_serialize_mods(state_.get(), XKB_STATE_MODS_LOCKED)};
}

void WlrootsKeyboard::tell(const Modifiers& modifiers) {
    if (modifiers == told_)
        return;
    told_ = modifiers;
    zwp_virtual_keyboard_v1_modifiers(keyboard_.get(), modifiers.depressed, modifiers.latched,
                                      modifiers.locked, 0);
}

/// With as little change of what is held as goes: Num Lock before Shift, so that a keypad's digits
/// are digits.
std::optional<WlrootsKeyboard::Stroke> WlrootsKeyboard::find(std::uint32_t keysym) const {
    auto bit = [&](const char* name) {
        const auto index = xkb_keymap_mod_get_index(keymap_.get(), name);
        return index == XKB_MOD_INVALID ? 0U : 1U << index;
    };
    const auto shift = bit(XKB_MOD_NAME_SHIFT);
    auto held = modifiers();
    auto numLock = held;
    numLock.locked ^= bit(XKB_MOD_NAME_NUM);
    auto shifted = held;
    shifted.depressed ^= shift;
    const Xkb<xkb_state> state(xkb_state_new(keymap_.get()));
    for (auto tried : {held, numLock, shifted}) {
        // The third level, by which another keyboard has it, is none here.
        tried.depressed &= ~bit("Mod5");
        xkb_state_update_mask(state.get(), tried.depressed, tried.latched, tried.locked, 0, 0, 0);
        for (auto code = firstCode; code <= lastCode; ++code) {
            if (xkb_state_key_get_one_sym(state.get(), code) == keysym)
                return Stroke{code, tried};
        }
    }
    return std::nullopt;
}

/// A modifier is the key that has its name, whatever is held.
std::optional<std::uint32_t> WlrootsKeyboard::modifierKey(std::uint32_t keysym) const {
    // Some keyboards have them where others have Alt.
    if (keysym == XKB_KEY_Meta_L)
        keysym = XKB_KEY_Alt_L;
    else if (keysym == XKB_KEY_Meta_R)
        keysym = XKB_KEY_Alt_R;
    const bool isModifier = (keysym >= XKB_KEY_Shift_L && keysym <= XKB_KEY_Hyper_R) ||
                            keysym == XKB_KEY_ISO_Level3_Shift || keysym == XKB_KEY_Num_Lock;
    for (auto code = firstCode; isModifier && code <= lastCode; ++code) {
        const xkb_keysym_t* symbols = nullptr;
        if (xkb_keymap_key_get_syms_by_level(keymap_.get(), code, 0, 0, &symbols) == 1 &&
            symbols[0] == keysym)
            return code;
    }
    return std::nullopt;
}

std::optional<std::uint32_t> WlrootsKeyboard::borrow(std::uint32_t keysym) {
    auto given = std::find_if(spare_.begin(), spare_.end(),
                              [&](const auto& spare) { return spare.keysym == keysym; });
    if (given == spare_.end()) {
        given = std::find_if(spare_.begin(), spare_.end(), [&](const auto& spare) {
            return std::none_of(held_.begin(), held_.end(),
                                [&](const auto& held) { return held.second == spare.code; });
        });
        if (given == spare_.end())
            return std::nullopt;
        const auto before = std::exchange(given->keysym, keysym);
        if (!hand()) {
            // No keysym that anybody knows.
            given->keysym = before;
            return std::nullopt;
        }
    }
    const auto code = given->code;
    std::rotate(given, given + 1, spare_.end());
    return code;
}

void WlrootsKeyboard::key(std::uint32_t keysym, bool isDown) {
    if (!state_ || keysym == XKB_KEY_NoSymbol)
        return;
    if (isDown) {
        press(keysym);
    } else if (auto held = held_.find(keysym); held != held_.end()) {
        send(held->second, false);
        held_.erase(held);
    }
    wayland_.flush();
}

void WlrootsKeyboard::press(std::uint32_t keysym) {
    const auto modifier = modifierKey(keysym);
    if (auto held = held_.find(keysym); held != held_.end()) {
        // The viewer's keyboard repeats it.
        if (modifier)
            return;
        send(held->second, false);
        held_.erase(held);
    }
    auto code = modifier;
    if (!code) {
        if (const auto stroke = find(keysym)) {
            tell(stroke->modifiers);
            code = stroke->code;
        } else {
            code = borrow(keysym);
        }
    }
    if (!code)
        return;
    held_[keysym] = *code;
    send(*code, true);
}

void WlrootsKeyboard::send(std::uint32_t code, bool isDown) {
    zwp_virtual_keyboard_v1_key(
        keyboard_.get(), eventTime(), code - firstCode,
        isDown ? WL_KEYBOARD_KEY_STATE_PRESSED : WL_KEYBOARD_KEY_STATE_RELEASED);
    xkb_state_update_key(state_.get(), code, isDown ? XKB_KEY_DOWN : XKB_KEY_UP);
    tell(modifiers());
}

}  // namespace zelvo::server
