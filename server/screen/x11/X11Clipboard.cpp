#include "server/screen/x11/X11Clipboard.h"

#include <xcb/xfixes.h>

#include <array>
#include <cstring>
#include <utility>

namespace zelvo::server {

X11Clipboard::X11Clipboard(X11Connection& x, std::function<void(const std::string&)> copied)
    : x_(x),
      copied_(std::move(copied)),
      window_(xcb_generate_id(x)),
      atoms_{x.atom("CLIPBOARD"), x.atom("UTF8_STRING"), x.atom("text/plain;charset=utf-8"),
             x.atom("TARGETS"),   x.atom("TEXT"),        x.atom("INCR"),
             x.atom("ZELVO_TEXT")} {
    const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(x_, XCB_COPY_FROM_PARENT, window_, x_.root(), -1, -1, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK,
                      &events);
    xcb_xfixes_select_selection_input(x_, window_, atoms_.clipboard,
                                      XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER);
}

void X11Clipboard::setWatched(bool isWatched) {
    isWatched_ = isWatched;
}

void X11Clipboard::set(std::string text) {
    if (text.size() > longestText)
        return;
    text_ = std::move(text);
    isOwner_ = true;
    xcb_set_selection_owner(x_, window_, atoms_.clipboard, XCB_CURRENT_TIME);
    xcb_flush(x_);
}

bool X11Clipboard::handle(const xcb_generic_event_t& event) {
    const int type = event.response_type & 0x7F;
    if (type == x_.fixesEvent() + XCB_XFIXES_SELECTION_NOTIFY) {
        const auto& change = reinterpret_cast<const xcb_xfixes_selection_notify_event_t&>(event);
        if (change.selection == atoms_.clipboard)
            ownerChanged(change.owner);
    } else if (type == XCB_SELECTION_NOTIFY) {
        textArrived(reinterpret_cast<const xcb_selection_notify_event_t&>(event));
    } else if (type == XCB_SELECTION_REQUEST) {
        answer(reinterpret_cast<const xcb_selection_request_event_t&>(event));
    } else if (type == XCB_PROPERTY_NOTIFY) {
        partArrived(reinterpret_cast<const xcb_property_notify_event_t&>(event));
    } else {
        return type == XCB_SELECTION_CLEAR;
    }
    return true;
}

void X11Clipboard::ownerChanged(xcb_window_t owner) {
    if (owner == window_)
        return;
    isOwner_ = false;
    text_ = {};
    comesInParts_ = false;
    if (!isWatched_ || owner == XCB_WINDOW_NONE)
        return;
    xcb_convert_selection(x_, window_, atoms_.clipboard, atoms_.utf8, atoms_.property,
                          XCB_CURRENT_TIME);
    xcb_flush(x_);
}

std::string X11Clipboard::takeProperty(xcb_atom_t& type) {
    Reply<xcb_get_property_reply_t> reply(
        xcb_get_property_reply(x_,
                               xcb_get_property(x_, 1, window_, atoms_.property,
                                                XCB_GET_PROPERTY_TYPE_ANY, 0, longestText / 4 + 1),
                               nullptr));
    type = reply ? reply->type : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
    if (!reply || reply->format != 8)
        return {};
    return {static_cast<const char*>(xcb_get_property_value(reply.get())),
            static_cast<std::size_t>(xcb_get_property_value_length(reply.get()))};
}

void X11Clipboard::textArrived(const xcb_selection_notify_event_t& event) {
    if (event.property == XCB_ATOM_NONE || event.selection != atoms_.clipboard)
        return;
    xcb_atom_t type = XCB_ATOM_NONE;
    auto text = takeProperty(type);
    if (type == atoms_.incr) {
        comesInParts_ = true;
        parts_.clear();
    } else if (type == atoms_.utf8 && isWatched_ && !text.empty() && text.size() <= longestText) {
        copied_(text);
    }
}

void X11Clipboard::partArrived(const xcb_property_notify_event_t& event) {
    if (!comesInParts_ || event.window != window_ || event.atom != atoms_.property ||
        event.state != XCB_PROPERTY_NEW_VALUE)
        return;
    xcb_atom_t type = XCB_ATOM_NONE;
    auto part = takeProperty(type);
    // Too long a one is taken to its end all the same, and not kept.
    if (parts_.size() <= longestText)
        parts_ += part;
    if (!part.empty())
        return;
    comesInParts_ = false;
    auto text = std::exchange(parts_, {});
    if (isWatched_ && !text.empty() && text.size() <= longestText)
        copied_(text);
}

void X11Clipboard::answer(const xcb_selection_request_event_t& request) {
    xcb_selection_notify_event_t notice{};
    notice.response_type = XCB_SELECTION_NOTIFY;
    notice.time = request.time;
    notice.requestor = request.requestor;
    notice.selection = request.selection;
    notice.target = request.target;
    // Old clients name no property (ICCCM, section 2.2).
    const auto property = request.property == XCB_ATOM_NONE ? request.target : request.property;
    const std::array<xcb_atom_t, 5> offered{atoms_.targets, atoms_.utf8, atoms_.plain, atoms_.text,
                                            XCB_ATOM_STRING};
    if (isOwner_ && request.target == atoms_.targets) {
        xcb_change_property(x_, XCB_PROP_MODE_REPLACE, request.requestor, property, XCB_ATOM_ATOM,
                            32, offered.size(), offered.data());
        notice.property = property;
    } else if (isOwner_ && (request.target == atoms_.utf8 || request.target == atoms_.plain ||
                            request.target == atoms_.text || request.target == XCB_ATOM_STRING)) {
        const auto type = request.target == atoms_.plain ? atoms_.plain : atoms_.utf8;
        xcb_change_property(x_, XCB_PROP_MODE_REPLACE, request.requestor, property, type, 8,
                            static_cast<std::uint32_t>(text_.size()), text_.data());
        notice.property = property;
    }
    xcb_send_event(x_, 0, request.requestor, 0, reinterpret_cast<const char*>(&notice));
    xcb_flush(x_);
}

}  // namespace zelvo::server
