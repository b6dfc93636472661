#include "platform/linux/desktop/XServerKeyboard.h"

#include <xcb/xcb.h>
// The header is C and names a member so.
#define explicit explicitComponents
#include <xcb/xkb.h>
#undef explicit

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

namespace zelvo::platform {

namespace {

constexpr const char* rulesProperty = "_XKB_RULES_NAMES";

struct Free {
    void operator()(void* reply) const { std::free(reply); }
};
template <typename T>
using Reply = std::unique_ptr<T, Free>;

struct Disconnect {
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
};
using Connection = std::unique_ptr<xcb_connection_t, Disconnect>;

std::vector<std::string> parts(std::string_view text, char separator) {
    std::vector<std::string> result;
    for (auto end = text.find(separator); end != text.npos; end = text.find(separator)) {
        result.emplace_back(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    result.emplace_back(text);
    return result;
}

/// Rules, model, layouts, variants and options.
std::vector<std::string> rulesNames(xcb_connection_t* connection) {
    auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    if (screens.rem == 0)
        return {};
    Reply<xcb_intern_atom_reply_t> atom(xcb_intern_atom_reply(
        connection,
        xcb_intern_atom(connection, 1, static_cast<std::uint16_t>(std::strlen(rulesProperty)),
                        rulesProperty),
        nullptr));
    if (!atom || atom->atom == XCB_ATOM_NONE)
        return {};
    Reply<xcb_get_property_reply_t> property(xcb_get_property_reply(
        connection,
        xcb_get_property(connection, 0, screens.data->root, atom->atom, XCB_ATOM_STRING, 0, 1024),
        nullptr));
    if (!property || property->format != 8)
        return {};
    return parts({static_cast<const char*>(xcb_get_property_value(property.get())),
                  static_cast<std::size_t>(xcb_get_property_value_length(property.get()))},
                 '\0');
}

std::size_t currentGroup(xcb_connection_t* connection) {
    Reply<xcb_xkb_use_extension_reply_t> extension(xcb_xkb_use_extension_reply(
        connection, xcb_xkb_use_extension(connection, XCB_XKB_MAJOR_VERSION, XCB_XKB_MINOR_VERSION),
        nullptr));
    if (!extension || !extension->supported)
        return 0;
    Reply<xcb_xkb_get_state_reply_t> state(xcb_xkb_get_state_reply(
        connection, xcb_xkb_get_state(connection, XCB_XKB_ID_USE_CORE_KBD), nullptr));
    return state ? state->group : 0;
}

}  // namespace

std::optional<std::string> xServerKeyboardLayout(const std::string& display) {
    Connection connection(xcb_connect(display.c_str(), nullptr));
    if (xcb_connection_has_error(connection.get()) != 0)
        return std::nullopt;
    auto names = rulesNames(connection.get());
    if (names.size() < 4)
        return std::nullopt;
    auto layouts = parts(names[2], ',');
    auto variants = parts(names[3], ',');
    variants.resize(layouts.size());
    auto group = layouts.size() > 1 ? currentGroup(connection.get()) : 0;
    if (group >= layouts.size())
        group = 0;
    if (layouts[group].empty())
        return std::nullopt;
    return variants[group].empty() ? layouts[group] : layouts[group] + "+" + variants[group];
}

}  // namespace zelvo::platform
