#pragma once

#include <functional>
#include <string>

#include "server/screen/x11/X11Connection.h"

namespace zelvo::server {

/// The selection CLIPBOARD (ICCCM, section 2), both ways, as UTF-8 text.
class X11Clipboard {
  public:
    /// Longer texts are neither taken nor told of. In bytes.
    static constexpr std::size_t longestText = 1024 * 1024;

    X11Clipboard(X11Connection& x, std::function<void(const std::string& text)> copied);

    /// Texts that others copy are asked for, and told of, only while it is watched.
    void setWatched(bool isWatched);
    /// Becomes the owner, for as long as nobody else copies something.
    void set(std::string text);

    /// Whether the event was about the clipboard.
    bool handle(const xcb_generic_event_t& event);

  private:
    void ownerChanged(xcb_window_t owner);
    void textArrived(const xcb_selection_notify_event_t& event);
    void partArrived(const xcb_property_notify_event_t& event);
    std::string takeProperty(xcb_atom_t& type);
    void answer(const xcb_selection_request_event_t& request);

    X11Connection& x_;
    const std::function<void(const std::string&)> copied_;
    xcb_window_t window_;
    struct {
        xcb_atom_t clipboard, utf8, plain, targets, text, incr, property;
    } atoms_;
    bool isWatched_ = false;
    bool isOwner_ = false;
    std::string text_;
    /// A text that comes in parts (ICCCM, section 2.7.2).
    bool comesInParts_ = false;
    std::string parts_;
};

}  // namespace zelvo::server
