#include "platform/qt/viewers/KeysElsewhere.h"

#include <QGuiApplication>
#include <utility>

#ifdef ZELVO_XINPUT
#include <xcb/xcb.h>
#include <xcb/xinput.h>
#endif

namespace zelvo::platform {

#ifdef ZELVO_XINPUT

namespace {

xcb_connection_t* displayConnection() {
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    return x11 ? x11->connection() : nullptr;
}

// The toolkit has told the display which version of the extension it speaks, and chooses events for
// all devices; this choice is one for master devices and leaves that alone.
void chooseKeys(xcb_connection_t* display, std::uint32_t events) {
    struct {
        xcb_input_event_mask_t head;
        std::uint32_t events;
    } mask{{XCB_INPUT_DEVICE_ALL_MASTER, 1}, events};
    for (auto screen = xcb_setup_roots_iterator(xcb_get_setup(display)); screen.rem > 0;
         xcb_screen_next(&screen))
        xcb_input_xi_select_events(display, screen.data->root, 1, &mask.head);
    xcb_flush(display);
}

}  // namespace

KeysElsewhere::KeysElsewhere(std::function<void()> pressed) : pressed_(std::move(pressed)) {
    auto* display = displayConnection();
    if (!display)
        return;
    const auto* extension = xcb_get_extension_data(display, &xcb_input_id);
    if (!extension || !extension->present)
        return;
    extension_ = extension->major_opcode;
    chooseKeys(display, XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS);
    qGuiApp->installNativeEventFilter(this);
}

KeysElsewhere::~KeysElsewhere() {
    if (!extension_)
        return;
    qGuiApp->removeNativeEventFilter(this);
    if (auto* display = displayConnection())
        chooseKeys(display, 0);
}

bool KeysElsewhere::nativeEventFilter(const QByteArray&, void* message, qintptr*) {
    const auto* event = static_cast<const xcb_ge_generic_event_t*>(message);
    if ((event->response_type & 0x7F) != XCB_GE_GENERIC || event->extension != extension_ ||
        event->event_type != XCB_INPUT_RAW_KEY_PRESS)
        return false;
    // Those of our own windows come as events of the toolkit, too.
    if (!QGuiApplication::focusWindow())
        pressed_();
    return true;
}

#else

KeysElsewhere::KeysElsewhere(std::function<void()> pressed) : pressed_(std::move(pressed)) {}
KeysElsewhere::~KeysElsewhere() = default;
bool KeysElsewhere::nativeEventFilter(const QByteArray&, void*, qintptr*) {
    return false;
}

#endif

}  // namespace zelvo::platform
