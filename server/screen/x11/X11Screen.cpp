#include "server/screen/x11/X11Screen.h"

#include <xcb/damage.h>
#include <xcb/randr.h>
#include <xcb/xfixes.h>
#include <xcb/xinput.h>
#include <xcb/xtest.h>

#include <utility>

namespace zelvo::server {

X11Screen::X11Screen(std::unique_ptr<X11Connection> connection)
    : x_(std::move(connection)),
      picture_(*x_),
      keyboard_(*x_),
      clipboard_(*x_, [this](const std::string& text) { copied_ = text; }) {
    if (x_->randrEvent())
        xcb_randr_select_input(*x_, x_->root(), XCB_RANDR_NOTIFY_MASK_SCREEN_CHANGE);
    xcb_flush(*x_);
}

void X11Screen::setWatched(bool isWatched) {
    isWatched_ = isWatched;
    picture_.setWatched(isWatched);
    clipboard_.setWatched(isWatched);
    xcb_xfixes_select_cursor_input(
        *x_, x_->root(),
        isWatched ? std::uint32_t{XCB_XFIXES_CURSOR_NOTIFY_MASK_DISPLAY_CURSOR} : 0);
    if (x_->inputOpcode()) {
        struct {
            xcb_input_event_mask_t head;
            std::uint32_t mask;
        } selection{{XCB_INPUT_DEVICE_ALL_MASTER, 1},
                    isWatched ? std::uint32_t{XCB_INPUT_XI_EVENT_MASK_RAW_MOTION} : 0};
        xcb_input_xi_select_events(*x_, x_->root(), 1, &selection.head);
    }
    hasNewCursor_ = hasMoved_ = isWatched;
    xcb_flush(*x_);
}

void X11Screen::dispatch(ScreenObserver& observer) {
    Reply<xcb_generic_event_t> event;
    do {
        while (event.reset(xcb_poll_for_event(*x_)), event)
            handle(*event);
        if (isWatched_)
            tell(observer);
        // What is told of asks the X server, and waiting for its reply may have read more.
        event.reset(xcb_poll_for_queued_event(*x_));
        if (event)
            handle(*event);
    } while (event);
    if (x_->hasFailed() && !std::exchange(hasEnded_, true))
        observer.screenEnded(ScreenEnd::Gone);
}

void X11Screen::tell(ScreenObserver& observer) {
    if (std::exchange(hasNewCursor_, false))
        tellCursor(observer);
    if (std::exchange(hasMoved_, false))
        tellPosition(observer);
    if (!copied_.empty())
        observer.clipboardChanged(std::exchange(copied_, {}));
    if (std::exchange(hasChanged_, false))
        observer.screenChanged();
}

void X11Screen::handle(const xcb_generic_event_t& event) {
    const int type = event.response_type & 0x7F;
    if (type == x_->damageEvent() + XCB_DAMAGE_NOTIFY) {
        hasChanged_ = true;
    } else if (type == x_->fixesEvent() + XCB_XFIXES_CURSOR_NOTIFY) {
        hasNewCursor_ = true;
    } else if (type == XCB_GE_GENERIC) {
        hasMoved_ = true;
    } else if (x_->randrEvent() && type == x_->randrEvent() + XCB_RANDR_SCREEN_CHANGE_NOTIFY) {
        const auto& change = reinterpret_cast<const xcb_randr_screen_change_notify_event_t&>(event);
        // Told for the monitor as it stands; the root window may be turned.
        const bool isTurned =
            change.rotation & (XCB_RANDR_ROTATION_ROTATE_90 | XCB_RANDR_ROTATION_ROTATE_270);
        newSize_ = isTurned ? Size{change.height, change.width} : Size{change.width, change.height};
        hasChanged_ = true;
    } else if (!keyboard_.handle(event)) {
        clipboard_.handle(event);
    }
}

std::vector<Rectangle> X11Screen::capture(ScreenObserver& observer) {
    if (newSize_.width > 0)
        picture_.resize(std::exchange(newSize_, {}));
    auto changed = picture_.capture();
    // Waiting for replies has read events, which no descriptor will tell of.
    dispatch(observer);
    return changed;
}

void X11Screen::tellCursor(ScreenObserver& observer) {
    Reply<xcb_xfixes_get_cursor_image_reply_t> image(
        xcb_xfixes_get_cursor_image_reply(*x_, xcb_xfixes_get_cursor_image(*x_), nullptr));
    if (!image)
        return;
    Cursor cursor{{image->width, image->height}, {image->xhot, image->yhot}, {}};
    const auto* pixels = xcb_xfixes_get_cursor_image_cursor_image(image.get());
    cursor.pixels.assign(pixels,
                         pixels + xcb_xfixes_get_cursor_image_cursor_image_length(image.get()));
    observer.cursorChanged(cursor);
}

void X11Screen::tellPosition(ScreenObserver& observer) {
    Reply<xcb_query_pointer_reply_t> reply(
        xcb_query_pointer_reply(*x_, xcb_query_pointer(*x_, x_->root()), nullptr));
    if (reply)
        observer.cursorMoved({reply->root_x, reply->root_y});
}

void X11Screen::pointer(Point position, std::uint8_t buttons) {
    xcb_test_fake_input(*x_, XCB_MOTION_NOTIFY, 0, XCB_CURRENT_TIME, x_->root(),
                        static_cast<std::int16_t>(position.x),
                        static_cast<std::int16_t>(position.y), 0);
    // The numbers are the same: X's button 1 is bit 0.
    for (unsigned bit = 0; bit < 8; ++bit) {
        const bool isDown = buttons >> bit & 1U;
        if (isDown != static_cast<bool>(buttons_ >> bit & 1U))
            xcb_test_fake_input(*x_, isDown ? XCB_BUTTON_PRESS : XCB_BUTTON_RELEASE,
                                static_cast<std::uint8_t>(bit + 1), XCB_CURRENT_TIME,
                                XCB_WINDOW_NONE, 0, 0, 0);
    }
    buttons_ = buttons;
    xcb_flush(*x_);
}

}  // namespace zelvo::server
