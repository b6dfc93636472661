#include "server/screen/x11/X11Connection.h"

#include <xcb/damage.h>
#include <xcb/randr.h>
#include <xcb/xfixes.h>
#include <xcb/xinput.h>
#include <xcb/xtest.h>
// A keyword of C++ is the name of a field there.
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit

#include <cstring>
#include <string_view>

namespace zelvo::server {

X11Connection::X11Connection(const std::string& display) {
    int screenNumber = 0;
    connection_ = xcb_connect(display.empty() ? nullptr : display.c_str(), &screenNumber);
    problem_ = hasFailed() ? Problem::Refused : setUp(screenNumber);
}

X11Connection::Problem X11Connection::setUp(int screenNumber) {
    auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection_));
    for (; screens.rem > 0 && screenNumber > 0; --screenNumber)
        xcb_screen_next(&screens);
    screen_ = screens.data;
    auto present = [&](xcb_extension_t* extension) {
        const auto* data = xcb_get_extension_data(connection_, extension);
        return data && data->present ? data : nullptr;
    };
    const auto* damage = present(&xcb_damage_id);
    const auto* fixes = present(&xcb_xfixes_id);
    const auto* keyboard = present(&xcb_xkb_id);
    if (!screen_ || !damage || !fixes || !keyboard || !present(&xcb_test_id) || !findVisual())
        return Problem::NotUsable;
    damageEvent_ = damage->first_event;
    fixesEvent_ = fixes->first_event;
    xkbEvent_ = keyboard->first_event;
    auto damageVersion = xcb_damage_query_version(connection_, 1, 1);
    auto fixesVersion = xcb_xfixes_query_version(connection_, 5, 0);
    auto xkbVersion = xcb_xkb_use_extension(connection_, 1, 0);
    Reply<xcb_damage_query_version_reply_t> damageReply(
        xcb_damage_query_version_reply(connection_, damageVersion, nullptr));
    Reply<xcb_xfixes_query_version_reply_t> fixesReply(
        xcb_xfixes_query_version_reply(connection_, fixesVersion, nullptr));
    Reply<xcb_xkb_use_extension_reply_t> xkbReply(
        xcb_xkb_use_extension_reply(connection_, xkbVersion, nullptr));
    if (!damageReply || !fixesReply || fixesReply->major_version < 2 || !xkbReply ||
        !xkbReply->supported)
        return Problem::NotUsable;
    if (const auto* randr = present(&xcb_randr_id)) {
        auto version = xcb_randr_query_version(connection_, 1, 3);
        Reply<xcb_randr_query_version_reply_t> reply(
            xcb_randr_query_version_reply(connection_, version, nullptr));
        if (reply)
            randrEvent_ = randr->first_event;
    }
    if (const auto* input = present(&xcb_input_id)) {
        // From 2.1 on raw events come also while a program has grabbed the pointer.
        auto version = xcb_input_xi_query_version(connection_, 2, 1);
        Reply<xcb_input_xi_query_version_reply_t> reply(
            xcb_input_xi_query_version_reply(connection_, version, nullptr));
        if (reply)
            inputOpcode_ = input->major_opcode;
    }
    return isXwayland() ? Problem::Xwayland : Problem::None;
}

bool X11Connection::findVisual() {
    for (auto depths = xcb_screen_allowed_depths_iterator(screen_); depths.rem > 0;
         xcb_depth_next(&depths)) {
        for (auto visuals = xcb_depth_visuals_iterator(depths.data); visuals.rem > 0;
             xcb_visualtype_next(&visuals)) {
            if (visuals.data->visual_id == screen_->root_visual)
                visual_ = visuals.data;
        }
    }
    for (auto formats = xcb_setup_pixmap_formats_iterator(xcb_get_setup(connection_));
         formats.rem > 0; xcb_format_next(&formats)) {
        if (formats.data->depth == screen_->root_depth)
            bitsPerPixel_ = formats.data->bits_per_pixel;
    }
    return visual_ &&
           (visual_->_class == XCB_VISUAL_CLASS_TRUE_COLOR ||
            visual_->_class == XCB_VISUAL_CLASS_DIRECT_COLOR) &&
           (bitsPerPixel_ == 32 || bitsPerPixel_ == 16) && visual_->red_mask &&
           visual_->green_mask && visual_->blue_mask &&
           xcb_get_setup(connection_)->image_byte_order == XCB_IMAGE_ORDER_LSB_FIRST;
}

bool X11Connection::isXwayland() const {
    constexpr std::string_view extension = "XWAYLAND";
    Reply<xcb_query_extension_reply_t> named(xcb_query_extension_reply(
        connection_, xcb_query_extension(connection_, extension.size(), extension.data()),
        nullptr));
    if (named && named->present)
        return true;
    if (!randrEvent_)
        return false;
    // Older ones have no such extension, but name their outputs after themselves.
    Reply<xcb_randr_get_screen_resources_current_reply_t> resources(
        xcb_randr_get_screen_resources_current_reply(
            connection_, xcb_randr_get_screen_resources_current(connection_, root()), nullptr));
    if (!resources)
        return false;
    const auto* outputs = xcb_randr_get_screen_resources_current_outputs(resources.get());
    for (int i = 0; i < xcb_randr_get_screen_resources_current_outputs_length(resources.get());
         ++i) {
        Reply<xcb_randr_get_output_info_reply_t> output(xcb_randr_get_output_info_reply(
            connection_,
            xcb_randr_get_output_info(connection_, outputs[i], resources->config_timestamp),
            nullptr));
        if (!output)
            continue;
        std::string_view name(
            reinterpret_cast<const char*>(xcb_randr_get_output_info_name(output.get())),
            static_cast<std::size_t>(xcb_randr_get_output_info_name_length(output.get())));
        if (name.starts_with(extension))
            return true;
    }
    return false;
}

xcb_atom_t X11Connection::atom(const char* name) const {
    auto request =
        xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(std::strlen(name)), name);
    Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(connection_, request, nullptr));
    return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
}

}  // namespace zelvo::server
