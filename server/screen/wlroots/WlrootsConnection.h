#pragma once

#include <wayland-client-core.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>

struct wl_output;
struct wl_registry;
struct wl_seat;
struct wl_shm;
struct wl_buffer;
struct zwlr_data_control_device_v1;
struct zwlr_data_control_manager_v1;
struct zwlr_data_control_offer_v1;
struct zwlr_data_control_source_v1;
struct zwlr_screencopy_frame_v1;
struct zwlr_screencopy_manager_v1;
struct zwlr_virtual_pointer_manager_v1;
struct zwlr_virtual_pointer_v1;
struct zwp_virtual_keyboard_manager_v1;
struct zwp_virtual_keyboard_v1;
struct zxdg_output_manager_v1;
struct zxdg_output_v1;

namespace zelvo::server {

/// Takes back what stands for something in the compositor.
struct DestroyProxy {
    void operator()(wl_buffer* proxy) const;
    void operator()(wl_output* proxy) const;
    void operator()(wl_registry* proxy) const;
    void operator()(wl_seat* proxy) const;
    void operator()(wl_shm* proxy) const;
    void operator()(zwlr_data_control_device_v1* proxy) const;
    void operator()(zwlr_data_control_manager_v1* proxy) const;
    void operator()(zwlr_data_control_offer_v1* proxy) const;
    void operator()(zwlr_data_control_source_v1* proxy) const;
    void operator()(zwlr_screencopy_frame_v1* proxy) const;
    void operator()(zwlr_screencopy_manager_v1* proxy) const;
    void operator()(zwlr_virtual_pointer_manager_v1* proxy) const;
    void operator()(zwlr_virtual_pointer_v1* proxy) const;
    void operator()(zwp_virtual_keyboard_manager_v1* proxy) const;
    void operator()(zwp_virtual_keyboard_v1* proxy) const;
    void operator()(zxdg_output_manager_v1* proxy) const;
    void operator()(zxdg_output_v1* proxy) const;
};
template <typename Type>
using Proxy = std::unique_ptr<Type, DestroyProxy>;

/// A connection to the compositor that WAYLAND_DISPLAY names. What it makes ends before it.
class WlrootsConnection {
  public:
    /// Waits for the compositor, up to three seconds.
    WlrootsConnection();
    WlrootsConnection(const WlrootsConnection&) = delete;
    WlrootsConnection& operator=(const WlrootsConnection&) = delete;
    ~WlrootsConnection();

    /// Whether it is there, and lets us copy its screen, point and type.
    bool isUsable() const;
    /// For good.
    bool hasEnded() const { return !display_ || wl_display_get_error(display_) != 0; }

    int descriptor() const { return wl_display_get_fd(display_); }
    /// Handles what has come, and sends what waits. False while some of that still waits for room.
    bool dispatch();
    bool flush();
    /// Dispatches until it is done; false where time or the compositor ends first.
    bool wait(const std::function<bool()>& isDone, std::chrono::milliseconds longest);

    /// From now on tells of the outputs that are there, and that come and go.
    void watchOutputs(std::function<void(std::uint32_t name)> added,
                      std::function<void(std::uint32_t name)> removed);
    Proxy<wl_output> output(std::uint32_t name) const;

    wl_seat* seat() const { return seat_.get(); }
    wl_shm* shm() const { return shm_.get(); }
    zxdg_output_manager_v1* outputs() const { return outputs_.get(); }
    zwlr_screencopy_manager_v1* screencopy() const { return screencopy_.get(); }
    zwlr_virtual_pointer_manager_v1* pointers() const { return pointers_.get(); }
    zwp_virtual_keyboard_manager_v1* keyboards() const { return keyboards_.get(); }
    /// Null where the clipboard is nobody else's.
    zwlr_data_control_manager_v1* clipboards() const { return clipboards_.get(); }

  private:
    void added(std::uint32_t name, const char* interface, std::uint32_t version);

    wl_display* display_;
    Proxy<wl_registry> registry_;
    Proxy<wl_seat> seat_;
    Proxy<wl_shm> shm_;
    Proxy<zxdg_output_manager_v1> outputs_;
    Proxy<zwlr_screencopy_manager_v1> screencopy_;
    Proxy<zwlr_virtual_pointer_manager_v1> pointers_;
    Proxy<zwp_virtual_keyboard_manager_v1> keyboards_;
    Proxy<zwlr_data_control_manager_v1> clipboards_;
    std::map<std::uint32_t, std::uint32_t> outputVersions_;
    std::function<void(std::uint32_t)> outputAdded_;
    std::function<void(std::uint32_t)> outputRemoved_;
};

}  // namespace zelvo::server
