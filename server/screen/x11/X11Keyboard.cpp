#include "server/screen/x11/X11Keyboard.h"

#include <xcb/xtest.h>
#include <xkbcommon/xkbcommon-keysyms.h>
#include <xkbcommon/xkbcommon-x11.h>
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit

#include <algorithm>
#include <array>
#include <thread>
#include <utility>

namespace zelvo::server {

namespace {

/// Programs read what a key means when they handle its event, which may be late: it keeps its
/// meaning for at least so long.
constexpr auto shortestMeaning = std::chrono::milliseconds(50);

}  // namespace

void X11Keyboard::FreeXkb::operator()(xkb_context* context) const {
    xkb_context_unref(context);
}
void X11Keyboard::FreeXkb::operator()(xkb_keymap* keymap) const {
    xkb_keymap_unref(keymap);
}
void X11Keyboard::FreeXkb::operator()(xkb_state* state) const {
    xkb_state_unref(state);
}

X11Keyboard::X11Keyboard(X11Connection& x)
    : x_(x), context_(xkb_context_new(XKB_CONTEXT_NO_DEFAULT_INCLUDES)) {
    device_ = static_cast<std::uint8_t>(xkb_x11_get_core_keyboard_device_id(x_));
    constexpr std::uint16_t events =
        XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY | XCB_XKB_EVENT_TYPE_MAP_NOTIFY;
    constexpr std::uint16_t parts =
        XCB_XKB_MAP_PART_KEY_TYPES | XCB_XKB_MAP_PART_KEY_SYMS | XCB_XKB_MAP_PART_MODIFIER_MAP;
    xcb_xkb_select_events(x_, XCB_XKB_ID_USE_CORE_KBD, events, 0, events, parts, parts, nullptr);
    readKeymap();
    if (!keymap_)
        return;
    // Keys that mean nothing. Not the first ones, which old programs take for buttons.
    for (auto code = xkb_keymap_max_keycode(keymap_.get());
         code >= xkb_keymap_min_keycode(keymap_.get()); --code) {
        if (code <= 255 && xkb_keymap_num_layouts_for_key(keymap_.get(), code) == 0)
            spare_.push_back({static_cast<xcb_keycode_t>(code), XKB_KEY_NoSymbol, {}});
    }
}

X11Keyboard::~X11Keyboard() {
    for (const auto& [keysym, code] : held_)
        send(code, false);
    for (const auto& spare : spare_) {
        const std::array<xcb_keysym_t, 1> nothing{XKB_KEY_NoSymbol};
        if (spare.keysym != XKB_KEY_NoSymbol)
            xcb_change_keyboard_mapping(x_, 1, spare.code, nothing.size(), nothing.data());
    }
    xcb_flush(x_);
}

void X11Keyboard::readKeymap() {
    isStale_ = false;
    keymap_.reset(
        xkb_x11_keymap_new_from_device(context_.get(), x_, device_, XKB_KEYMAP_COMPILE_NO_FLAGS));
}

void X11Keyboard::checkSpares() {
    std::erase_if(spare_, [this](Spare& spare) {
        const xkb_keysym_t* symbols = nullptr;
        const int count =
            xkb_keymap_key_get_syms_by_level(keymap_.get(), spare.code, 0, 0, &symbols);
        if (count == 0)
            spare.keysym = XKB_KEY_NoSymbol;
        return count > 0 && symbols[0] != spare.keysym;
    });
}

bool X11Keyboard::handle(const xcb_generic_event_t& event) {
    if ((event.response_type & 0x7FU) != x_.xkbEvent())
        return false;
    isStale_ = true;
    return true;
}

std::unique_ptr<xkb_state, X11Keyboard::FreeXkb> X11Keyboard::currentState() const {
    return std::unique_ptr<xkb_state, FreeXkb>(
        xkb_x11_state_new_from_device(keymap_.get(), x_, device_));
}

/// Looks for the key and the modifiers under which it means the keysym, best in the layout that is
/// in force, with as little change of what is held as goes. Caps Lock and Num Lock stay as they
/// are.
std::optional<X11Keyboard::Stroke> X11Keyboard::find(std::uint32_t keysym) const {
    auto state = currentState();
    if (!state)
        return std::nullopt;
    auto* keymap = keymap_.get();
    const auto depressed = xkb_state_serialize_mods(state.get(), XKB_STATE_MODS_DEPRESSED);
    const auto latched = xkb_state_serialize_mods(state.get(), XKB_STATE_MODS_LATCHED);
    const auto locked = xkb_state_serialize_mods(state.get(), XKB_STATE_MODS_LOCKED);
    const auto layout = xkb_state_serialize_layout(state.get(), XKB_STATE_LAYOUT_EFFECTIVE);
    auto bit = [&](const char* name) {
        const auto index = xkb_keymap_mod_get_index(keymap, name);
        return index == XKB_MOD_INVALID ? 0U : 1U << index;
    };
    // Level 3 is by convention on Mod5, which the key of that name sets.
    const auto shift = bit(XKB_MOD_NAME_SHIFT);
    const auto level3 = bit("Mod5");
    const bool shiftNow = depressed & shift;
    const bool level3Now = level3 && (depressed & level3);
    // The layout in force first; from the others only what it lacks.
    const auto layouts = std::max(xkb_keymap_num_layouts(keymap), 1U);
    for (unsigned change = 0; change < 4 * layouts; ++change) {
        const auto wantsLayout = (layout + change / 4) % layouts;
        const bool wantsShift = shiftNow != ((change & 1U) != 0);
        const bool wantsLevel3 = level3Now != ((change & 2U) != 0);
        if ((wantsLevel3 && !level3) || (wantsShift && !shift))
            continue;
        const auto held = (depressed & ~(shift | level3)) | (wantsShift ? shift : 0U) |
                          (wantsLevel3 ? level3 : 0U);
        xkb_state_update_mask(state.get(), held, latched, locked, 0, 0, wantsLayout);
        for (auto code = xkb_keymap_min_keycode(keymap); code <= xkb_keymap_max_keycode(keymap);
             ++code) {
            if (xkb_state_key_get_one_sym(state.get(), code) == keysym && code <= 255)
                return Stroke{static_cast<xcb_keycode_t>(code), wantsShift, wantsLevel3,
                              wantsLayout, layout};
        }
    }
    return std::nullopt;
}

std::optional<xcb_keycode_t> X11Keyboard::keyOf(std::uint32_t keysym) const {
    auto* keymap = keymap_.get();
    for (auto code = xkb_keymap_min_keycode(keymap);
         code <= xkb_keymap_max_keycode(keymap) && code <= 255; ++code) {
        for (xkb_layout_index_t layout = 0; layout < xkb_keymap_num_layouts_for_key(keymap, code);
             ++layout) {
            const xkb_keysym_t* symbols = nullptr;
            const int count = xkb_keymap_key_get_syms_by_level(keymap, code, layout, 0, &symbols);
            if (count == 1 && symbols[0] == keysym)
                return static_cast<xcb_keycode_t>(code);
        }
    }
    return std::nullopt;
}

std::optional<xcb_keycode_t> X11Keyboard::borrow(std::uint32_t keysym) {
    auto given = std::find_if(spare_.begin(), spare_.end(),
                              [&](const auto& spare) { return spare.keysym == keysym; });
    if (given == spare_.end()) {
        auto isFree = [&](const auto& spare) {
            return std::none_of(held_.begin(), held_.end(),
                                [&](const auto& held) { return held.second == spare.code; });
        };
        given = std::find_if(spare_.begin(), spare_.end(), isFree);
        if (given == spare_.end())
            return std::nullopt;
        std::this_thread::sleep_until(given->used + shortestMeaning);
        given->keysym = keysym;
        // The same whatever is held.
        const std::array<xcb_keysym_t, 2> meaning{keysym, keysym};
        xcb_change_keyboard_mapping(x_, 1, given->code, meaning.size(), meaning.data());
    }
    return given->code;
}

void X11Keyboard::noteUse(xcb_keycode_t code) {
    auto used = std::find_if(spare_.begin(), spare_.end(),
                             [&](const auto& spare) { return spare.code == code; });
    if (used == spare_.end())
        return;
    used->used = std::chrono::steady_clock::now();
    std::rotate(used, used + 1, spare_.end());
}

bool X11Keyboard::isModifier(std::uint32_t keysym) const {
    return (keysym >= XKB_KEY_Shift_L && keysym <= XKB_KEY_Hyper_R) ||
           keysym == XKB_KEY_ISO_Level3_Shift || keysym == XKB_KEY_ISO_Level5_Shift ||
           keysym == XKB_KEY_Mode_switch || keysym == XKB_KEY_Num_Lock;
}

void X11Keyboard::key(std::uint32_t keysym, bool isDown) {
    if (isStale_ || !keymap_) {
        readKeymap();
        if (keymap_)
            checkSpares();
    }
    if (!keymap_ || keysym == XKB_KEY_NoSymbol)
        return;
    if (isDown)
        return press(keysym);
    auto held = held_.find(keysym);
    if (held == held_.end())
        return;
    send(held->second, false);
    held_.erase(held);
    xcb_flush(x_);
}

void X11Keyboard::press(std::uint32_t keysym) {
    if (auto held = held_.find(keysym); held != held_.end()) {
        // The viewer's keyboard repeats it.
        if (!isModifier(keysym)) {
            send(held->second, false);
            send(held->second, true);
            xcb_flush(x_);
        }
        return;
    }
    // A modifier is the key that has its name, whatever is held; everything else is what it shows.
    auto stroke = isModifier(keysym) ? std::nullopt : find(keysym);
    auto code = isModifier(keysym) ? keyOf(keysym) : std::nullopt;
    if (stroke)
        code = stroke->code;
    if (!code)
        code = borrow(keysym);
    if (!code)
        return;
    noteUse(*code);
    std::vector<std::pair<xcb_keycode_t, bool>> changes;
    if (stroke)
        changes = arrange(*stroke);
    const bool isElsewhere = stroke && stroke->layout != stroke->layoutNow;
    if (isElsewhere)
        setLayout(stroke->layout);
    send(*code, true);
    if (isElsewhere)
        setLayout(stroke->layoutNow);
    for (auto change = changes.rbegin(); change != changes.rend(); ++change)
        send(change->first, !change->second);
    held_[keysym] = *code;
    xcb_flush(x_);
}

std::vector<std::pair<xcb_keycode_t, bool>> X11Keyboard::arrange(const Stroke& stroke) {
    std::vector<std::pair<xcb_keycode_t, bool>> changes;
    auto set = [&](std::initializer_list<std::uint32_t> keysyms, bool wanted) {
        bool isHeld = false;
        for (auto keysym : keysyms) {
            if (auto held = held_.find(keysym); held != held_.end()) {
                isHeld = true;
                if (!wanted)
                    changes.emplace_back(held->second, false);
            }
        }
        if (wanted && !isHeld) {
            if (auto code = keyOf(*keysyms.begin()))
                changes.emplace_back(*code, true);
        }
    };
    set({XKB_KEY_Shift_L, XKB_KEY_Shift_R}, stroke.shift);
    set({XKB_KEY_ISO_Level3_Shift, XKB_KEY_Mode_switch}, stroke.level3);
    for (const auto& [code, isDown] : changes)
        send(code, isDown);
    return changes;
}

void X11Keyboard::setLayout(std::uint32_t layout) {
    xcb_xkb_latch_lock_state(x_, XCB_XKB_ID_USE_CORE_KBD, 0, 0, 1,
                             static_cast<std::uint8_t>(layout), 0, 0, 0);
}

void X11Keyboard::send(xcb_keycode_t code, bool isDown) {
    xcb_test_fake_input(x_, isDown ? XCB_KEY_PRESS : XCB_KEY_RELEASE, code, XCB_CURRENT_TIME,
                        XCB_WINDOW_NONE, 0, 0, 0);
}

}  // namespace zelvo::server
