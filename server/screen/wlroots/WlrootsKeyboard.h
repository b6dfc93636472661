#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "server/screen/wlroots/WlrootsConnection.h"

struct xkb_context;
struct xkb_keymap;
struct xkb_state;

namespace zelvo::server {

/// A keyboard of our own, beside the user's: presses keys by what they stand for (X keysyms). Its
/// keys are those of an American one; what that has not got, a key without a meaning is given.
class WlrootsKeyboard {
  public:
    explicit WlrootsKeyboard(WlrootsConnection& wayland);
    WlrootsKeyboard(const WlrootsKeyboard&) = delete;
    WlrootsKeyboard& operator=(const WlrootsKeyboard&) = delete;
    /// Lets everything go.
    ~WlrootsKeyboard();

    void key(std::uint32_t keysym, bool isDown);

  private:
    struct FreeXkb {
        void operator()(xkb_context* context) const;
        void operator()(xkb_keymap* keymap) const;
        void operator()(xkb_state* state) const;
    };
    template <typename Type>
    using Xkb = std::unique_ptr<Type, FreeXkb>;
    struct Modifiers {
        std::uint32_t depressed = 0;
        std::uint32_t latched = 0;
        std::uint32_t locked = 0;

        friend bool operator==(const Modifiers&, const Modifiers&) = default;
    };
    /// A key and the modifiers with which it means the keysym.
    struct Stroke {
        std::uint32_t code = 0;
        Modifiers modifiers;
    };
    struct Spare {
        std::uint32_t code = 0;
        std::string name;
        std::uint32_t keysym = 0;
    };

    /// The keymap with what spare keys mean becomes the compositor's; false where it is none.
    bool hand();
    std::optional<Stroke> find(std::uint32_t keysym) const;
    std::optional<std::uint32_t> modifierKey(std::uint32_t keysym) const;
    std::optional<std::uint32_t> borrow(std::uint32_t keysym);
    void press(std::uint32_t keysym);
    /// The key as it is, with what it does to the modifiers.
    void send(std::uint32_t code, bool isDown);
    Modifiers modifiers() const;
    void tell(const Modifiers& modifiers);

    WlrootsConnection& wayland_;
    Proxy<zwp_virtual_keyboard_v1> keyboard_;
    Xkb<xkb_context> context_;
    /// Without spare keys, on which no modifier depends.
    Xkb<xkb_keymap> keymap_;
    Xkb<xkb_state> state_;
    Modifiers told_;
    /// What is held, and by which key.
    std::map<std::uint32_t, std::uint32_t> held_;
    /// The one used longest ago first.
    std::vector<Spare> spare_;
};

}  // namespace zelvo::server
