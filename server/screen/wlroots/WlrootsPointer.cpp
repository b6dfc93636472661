#include "server/screen/wlroots/WlrootsPointer.h"

#include <linux/input-event-codes.h>
#include <wayland-client-protocol.h>
#include <wlr-virtual-pointer-unstable-v1.h>

#include <array>
#include <cmath>

#include "server/screen/wlroots/EventTime.h"

namespace zelvo::server {

namespace {

/// Places are told in whole numbers of this part of a pixel.
constexpr double fraction = 1.0 / 256;
/// What a notch of a wheel is worth to programs that know no notches.
constexpr int notch = 15;

struct Notch {
    wl_pointer_axis axis;
    int direction;
};
constexpr std::array wheel{
    Notch{WL_POINTER_AXIS_VERTICAL_SCROLL, -1}, Notch{WL_POINTER_AXIS_VERTICAL_SCROLL, 1},
    Notch{WL_POINTER_AXIS_HORIZONTAL_SCROLL, -1}, Notch{WL_POINTER_AXIS_HORIZONTAL_SCROLL, 1}};

/// By bit; 0 for the wheel.
constexpr std::array<std::uint32_t, 8> codes{BTN_LEFT, BTN_MIDDLE, BTN_RIGHT, 0, 0, 0, 0, BTN_SIDE};
constexpr unsigned firstOfWheel = 3;

}  // namespace

WlrootsPointer::WlrootsPointer(WlrootsConnection& wayland)
    : wayland_(wayland),
      pointer_(zwlr_virtual_pointer_manager_v1_create_virtual_pointer(wayland.pointers(),
                                                                      wayland.seat())) {}

WlrootsPointer::~WlrootsPointer() {
    setButtons(0);
    wayland_.flush();
}

void WlrootsPointer::set(const WlrootsPicture::Aim& aim, std::uint8_t buttons) {
    auto units = [](double length) {
        return static_cast<std::uint32_t>(std::lround(length / fraction));
    };
    if (aim.all.width > 0 && aim.all.height > 0) {
        zwlr_virtual_pointer_v1_motion_absolute(pointer_.get(), eventTime(), units(aim.x),
                                                units(aim.y), units(aim.all.width),
                                                units(aim.all.height));
        zwlr_virtual_pointer_v1_frame(pointer_.get());
    }
    setButtons(buttons);
    wayland_.flush();
}

void WlrootsPointer::setButtons(std::uint8_t buttons) {
    for (unsigned bit = 0; bit < codes.size(); ++bit) {
        const bool isDown = buttons >> bit & 1U;
        if (isDown == static_cast<bool>(buttons_ >> bit & 1U))
            continue;
        if (codes.at(bit) != 0) {
            zwlr_virtual_pointer_v1_button(
                pointer_.get(), eventTime(), codes.at(bit),
                isDown ? WL_POINTER_BUTTON_STATE_PRESSED : WL_POINTER_BUTTON_STATE_RELEASED);
        } else if (isDown) {
            const auto& [axis, direction] = wheel.at(bit - firstOfWheel);
            zwlr_virtual_pointer_v1_axis_source(pointer_.get(), WL_POINTER_AXIS_SOURCE_WHEEL);
            zwlr_virtual_pointer_v1_axis_discrete(pointer_.get(), eventTime(), axis,
                                                  wl_fixed_from_int(notch * direction), direction);
        }
        zwlr_virtual_pointer_v1_frame(pointer_.get());
    }
    buttons_ = buttons;
}

}  // namespace zelvo::server
