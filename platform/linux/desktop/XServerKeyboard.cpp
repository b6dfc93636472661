#include "platform/linux/desktop/XServerKeyboard.h"

#include <xcb/xcb.h>
// The header is C and names a member so.
#define explicit explicitComponents
#include <xcb/xkb.h>
#undef explicit

#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <vector>

#include "platform/linux/desktop/InputSourceId.h"

namespace zelvo::platform {

namespace {

constexpr const char* rulesProperty = "_XKB_RULES_NAMES";

struct Free {
    void operator()(void* reply) const { std::free(reply); }
};
template <typename T>
using Reply = std::unique_ptr<T, Free>;

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
    std::istringstream text(
        {static_cast<const char*>(xcb_get_property_value(property.get())),
         static_cast<std::size_t>(xcb_get_property_value_length(property.get()))});
    std::vector<std::string> names;
    for (std::string name; std::getline(text, name, '\0');)
        names.push_back(name);
    return names;
}

bool usesKeyboardExtension(xcb_connection_t* connection) {
    Reply<xcb_xkb_use_extension_reply_t> extension(xcb_xkb_use_extension_reply(
        connection, xcb_xkb_use_extension(connection, XCB_XKB_MAJOR_VERSION, XCB_XKB_MINOR_VERSION),
        nullptr));
    return extension && extension->supported;
}

/// Tells of another keymap and of another of its groups.
void selectNotices(xcb_connection_t* connection) {
    xcb_xkb_select_events_details_t details{};
    details.affectNewKeyboard = XCB_XKB_NKN_DETAIL_KEYCODES;
    details.newKeyboardDetails = XCB_XKB_NKN_DETAIL_KEYCODES;
    details.affectState = XCB_XKB_STATE_PART_GROUP_STATE;
    details.stateDetails = XCB_XKB_STATE_PART_GROUP_STATE;
    xcb_xkb_select_events_aux(
        connection, XCB_XKB_ID_USE_CORE_KBD,
        XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY | XCB_XKB_EVENT_TYPE_STATE_NOTIFY, 0, 0, 0, 0,
        &details);
    xcb_flush(connection);
}

std::size_t currentGroup(xcb_connection_t* connection) {
    Reply<xcb_xkb_get_state_reply_t> state(xcb_xkb_get_state_reply(
        connection, xcb_xkb_get_state(connection, XCB_XKB_ID_USE_CORE_KBD), nullptr));
    return state ? state->group : 0;
}

}  // namespace

XServerKeyboard::XServerKeyboard(const std::string& display)
    : connection_(xcb_connect(display.c_str(), nullptr), xcb_disconnect) {
    hasGroups_ = isConnected() && usesKeyboardExtension(connection_.get());
    if (hasGroups_)
        selectNotices(connection_.get());
}

bool XServerKeyboard::isConnected() const {
    return xcb_connection_has_error(connection_.get()) == 0;
}

int XServerKeyboard::descriptor() const {
    return xcb_get_file_descriptor(connection_.get());
}

bool XServerKeyboard::takeNotices() {
    auto any = false;
    while (Reply<xcb_generic_event_t> event{xcb_poll_for_event(connection_.get())})
        any = true;
    return any;
}

std::optional<std::string> XServerKeyboard::inputSource() const {
    if (!isConnected())
        return std::nullopt;
    auto names = rulesNames(connection_.get());
    if (names.size() < 4)
        return std::nullopt;
    auto isOneOfSeveral = hasGroups_ && names[2].find(',') != names[2].npos;
    return inputSourceId(names[2], names[3], isOneOfSeveral ? currentGroup(connection_.get()) : 0);
}

}  // namespace zelvo::platform
