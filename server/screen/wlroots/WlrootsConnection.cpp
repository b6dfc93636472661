#include "server/screen/wlroots/WlrootsConnection.h"

#include <poll.h>
#include <virtual-keyboard-unstable-v1.h>
#include <wayland-client-protocol.h>
#include <wlr-data-control-unstable-v1.h>
#include <wlr-screencopy-unstable-v1.h>
#include <wlr-virtual-pointer-unstable-v1.h>
#include <xdg-output-unstable-v1.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

namespace zelvo::server {

using namespace std::chrono_literals;

void DestroyProxy::operator()(wl_buffer* proxy) const {
    wl_buffer_destroy(proxy);
}
void DestroyProxy::operator()(wl_output* proxy) const {
    if (wl_output_get_version(proxy) >= WL_OUTPUT_RELEASE_SINCE_VERSION)
        wl_output_release(proxy);
    else
        wl_output_destroy(proxy);
}
void DestroyProxy::operator()(wl_registry* proxy) const {
    wl_registry_destroy(proxy);
}
void DestroyProxy::operator()(wl_seat* proxy) const {
    wl_seat_destroy(proxy);
}
void DestroyProxy::operator()(wl_shm* proxy) const {
    wl_shm_destroy(proxy);
}
void DestroyProxy::operator()(zwlr_data_control_device_v1* proxy) const {
    zwlr_data_control_device_v1_destroy(proxy);
}
void DestroyProxy::operator()(zwlr_data_control_manager_v1* proxy) const {
    zwlr_data_control_manager_v1_destroy(proxy);
}
void DestroyProxy::operator()(zwlr_data_control_offer_v1* proxy) const {
    zwlr_data_control_offer_v1_destroy(proxy);
}
void DestroyProxy::operator()(zwlr_data_control_source_v1* proxy) const {
    zwlr_data_control_source_v1_destroy(proxy);
}
void DestroyProxy::operator()(zwlr_screencopy_frame_v1* proxy) const {
    zwlr_screencopy_frame_v1_destroy(proxy);
}
void DestroyProxy::operator()(zwlr_screencopy_manager_v1* proxy) const {
    zwlr_screencopy_manager_v1_destroy(proxy);
}
void DestroyProxy::operator()(zwlr_virtual_pointer_manager_v1* proxy) const {
    zwlr_virtual_pointer_manager_v1_destroy(proxy);
}
void DestroyProxy::operator()(zwlr_virtual_pointer_v1* proxy) const {
    zwlr_virtual_pointer_v1_destroy(proxy);
}
void DestroyProxy::operator()(zwp_virtual_keyboard_manager_v1* proxy) const {
    zwp_virtual_keyboard_manager_v1_destroy(proxy);
}
void DestroyProxy::operator()(zwp_virtual_keyboard_v1* proxy) const {
    zwp_virtual_keyboard_v1_destroy(proxy);
}
void DestroyProxy::operator()(zxdg_output_manager_v1* proxy) const {
    zxdg_output_manager_v1_destroy(proxy);
}
void DestroyProxy::operator()(zxdg_output_v1* proxy) const {
    zxdg_output_v1_destroy(proxy);
}

WlrootsConnection::WlrootsConnection() : display_(wl_display_connect(nullptr)) {
    if (!display_)
        return;
    static constexpr wl_registry_listener listener{
        .global =
            [](void* self, wl_registry*, std::uint32_t name, const char* interface,
               std::uint32_t version) {
                static_cast<WlrootsConnection*>(self)->added(name, interface, version);
            },
        .global_remove =
            [](void* self, wl_registry*, std::uint32_t name) {
                auto& connection = *static_cast<WlrootsConnection*>(self);
                if (connection.outputVersions_.erase(name) && connection.outputRemoved_)
                    connection.outputRemoved_(name);
            }};
    registry_.reset(wl_display_get_registry(display_));
    wl_registry_add_listener(registry_.get(), &listener, this);
    bool isAnswered = false;
    static constexpr wl_callback_listener answered{
        [](void* flag, wl_callback*, std::uint32_t) { *static_cast<bool*>(flag) = true; }};
    auto* callback = wl_display_sync(display_);
    wl_callback_add_listener(callback, &answered, &isAnswered);
    wait([&] { return isAnswered; }, 3s);
    wl_callback_destroy(callback);
}

WlrootsConnection::~WlrootsConnection() {
    clipboards_.reset();
    keyboards_.reset();
    pointers_.reset();
    screencopy_.reset();
    outputs_.reset();
    shm_.reset();
    seat_.reset();
    registry_.reset();
    if (display_)
        wl_display_disconnect(display_);
}

bool WlrootsConnection::isUsable() const {
    return !hasEnded() && seat_ && shm_ && outputs_ && screencopy_ && pointers_ && keyboards_;
}

void WlrootsConnection::added(std::uint32_t name, const char* interface, std::uint32_t version) {
    auto bind = [&]<typename Type>(Proxy<Type>& proxy, const wl_interface& wanted,
                                   std::uint32_t least, std::uint32_t most) {
        if (!proxy && std::string_view(interface) == wanted.name && version >= least)
            proxy.reset(static_cast<Type*>(
                wl_registry_bind(registry_.get(), name, &wanted, std::min(version, most))));
    };
    bind(seat_, wl_seat_interface, 1, 1);
    bind(shm_, wl_shm_interface, 1, 1);
    bind(outputs_, zxdg_output_manager_v1_interface, 1, 3);
    // Earlier ones do not tell of changes.
    bind(screencopy_, zwlr_screencopy_manager_v1_interface, 2, 3);
    bind(pointers_, zwlr_virtual_pointer_manager_v1_interface, 1, 1);
    bind(keyboards_, zwp_virtual_keyboard_manager_v1_interface, 1, 1);
    bind(clipboards_, zwlr_data_control_manager_v1_interface, 1, 1);
    if (std::string_view(interface) == wl_output_interface.name) {
        outputVersions_[name] = std::min(version, 3U);
        if (outputAdded_)
            outputAdded_(name);
    }
}

void WlrootsConnection::watchOutputs(std::function<void(std::uint32_t)> added,
                                     std::function<void(std::uint32_t)> removed) {
    outputAdded_ = std::move(added);
    outputRemoved_ = std::move(removed);
    for (const auto& [name, version] : outputVersions_)
        outputAdded_(name);
}

Proxy<wl_output> WlrootsConnection::output(std::uint32_t name) const {
    return Proxy<wl_output>(static_cast<wl_output*>(
        wl_registry_bind(registry_.get(), name, &wl_output_interface, outputVersions_.at(name))));
}

bool WlrootsConnection::flush() {
    return wl_display_flush(display_) >= 0 || errno != EAGAIN;
}

bool WlrootsConnection::dispatch() {
    wait([] { return false; }, 0ms);
    return flush();
}

bool WlrootsConnection::wait(const std::function<bool()>& isDone,
                             std::chrono::milliseconds longest) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + longest;
    while (!hasEnded()) {
        while (wl_display_prepare_read(display_) != 0) {
            if (wl_display_dispatch_pending(display_) < 0)
                return false;
        }
        if (isDone()) {
            wl_display_cancel_read(display_);
            return true;
        }
        const auto events = static_cast<short>(flush() ? POLLIN : POLLIN | POLLOUT);
        pollfd news{descriptor(), events, 0};
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        const int ready = ::poll(&news, 1, std::max(static_cast<int>(left.count()), 0));
        if (ready > 0 && (news.revents & ~POLLOUT)) {
            if (wl_display_read_events(display_) < 0)
                return false;
        } else {
            wl_display_cancel_read(display_);
            if (ready == 0)
                return false;
        }
        if (wl_display_dispatch_pending(display_) < 0)
            return false;
        if (longest == 0ms)
            return isDone();
    }
    return false;
}

}  // namespace zelvo::server
