#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "server/screen/x11/X11Connection.h"

struct xkb_context;
struct xkb_keymap;
struct xkb_state;

namespace zelvo::server {

/// Presses keys by what they stand for (X keysyms), whatever the layout is: on the key that has it,
/// with the modifiers that it takes there; on a key without a meaning, which is given it, where
/// none has.
class X11Keyboard {
  public:
    explicit X11Keyboard(X11Connection& x);
    X11Keyboard(const X11Keyboard&) = delete;
    X11Keyboard& operator=(const X11Keyboard&) = delete;
    /// Lets everything go, and gives spare keys back.
    ~X11Keyboard();

    void key(std::uint32_t keysym, bool isDown);
    /// Whether the event was about the keyboard.
    bool handle(const xcb_generic_event_t& event);

  private:
    struct FreeXkb {
        void operator()(xkb_context* context) const;
        void operator()(xkb_keymap* keymap) const;
        void operator()(xkb_state* state) const;
    };
    /// A key and what has to be held for it to mean the keysym.
    struct Stroke {
        xcb_keycode_t code = 0;
        bool shift = false;
        bool level3 = false;
        /// The layout, and the one that is in force, where it is another.
        std::uint32_t layout = 0;
        std::uint32_t layoutNow = 0;
    };
    struct Spare {
        xcb_keycode_t code = 0;
        std::uint32_t keysym = 0;
        std::chrono::steady_clock::time_point used;
    };

    void readKeymap();
    /// A new layout takes their meanings from spare keys, or has a meaning of its own for them.
    void checkSpares();
    /// What is in force on the keyboard now.
    std::unique_ptr<xkb_state, FreeXkb> currentState() const;
    std::optional<Stroke> find(std::uint32_t keysym) const;
    std::optional<xcb_keycode_t> keyOf(std::uint32_t keysym) const;
    std::optional<xcb_keycode_t> borrow(std::uint32_t keysym);
    /// A spare key has been used, and keeps its meaning for longer than others.
    void noteUse(xcb_keycode_t code);
    bool isModifier(std::uint32_t keysym) const;
    void press(std::uint32_t keysym);
    /// Presses or lets go modifiers until shift and level 3 are as wanted; tells what was done, in
    /// order.
    std::vector<std::pair<xcb_keycode_t, bool>> arrange(const Stroke& stroke);
    void setLayout(std::uint32_t layout);
    void send(xcb_keycode_t code, bool isDown);

    X11Connection& x_;
    std::unique_ptr<xkb_context, FreeXkb> context_;
    std::unique_ptr<xkb_keymap, FreeXkb> keymap_;
    bool isStale_ = false;
    std::uint8_t device_ = 0;
    /// What is held, and by which key: a keysym may have moved by the time it is let go.
    std::map<std::uint32_t, xcb_keycode_t> held_;
    /// Spare keys, and what each has been given, the one used longest ago first.
    std::vector<Spare> spare_;
};

}  // namespace zelvo::server
