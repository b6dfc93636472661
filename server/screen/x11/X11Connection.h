#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

namespace zelvo::server {

struct FreeReply {
    void operator()(void* reply) const { std::free(reply); }
};
/// What the XCB library hands out to be freed.
template <typename Type>
using Reply = std::unique_ptr<Type, FreeReply>;

/// A connection to an X server with the extensions that showing and using its screen needs.
class X11Connection {
  public:
    enum class Problem {
        None,
        /// No such display, or it does not let us in.
        Refused,
        /// DAMAGE, XFIXES, XTEST or XKB is missing, or its colours are none that we know.
        NotUsable,
        /// Shows the windows of programs that use X, and not the desktop.
        Xwayland,
    };

    /// Empty for the display that the environment names.
    explicit X11Connection(const std::string& display);
    X11Connection(const X11Connection&) = delete;
    X11Connection& operator=(const X11Connection&) = delete;
    ~X11Connection() { xcb_disconnect(connection_); }

    Problem problem() const { return problem_; }
    bool hasFailed() const { return xcb_connection_has_error(connection_) != 0; }

    operator xcb_connection_t*() const { return connection_; }
    int descriptor() const { return xcb_get_file_descriptor(connection_); }
    xcb_window_t root() const { return screen_->root; }
    const xcb_screen_t& screen() const { return *screen_; }
    xcb_atom_t atom(const char* name) const;

    /// The first event numbers of the extensions.
    std::uint8_t damageEvent() const { return damageEvent_; }
    std::uint8_t fixesEvent() const { return fixesEvent_; }
    /// 0 without RandR, of which nothing else is needed then.
    std::uint8_t randrEvent() const { return randrEvent_; }
    std::uint8_t xkbEvent() const { return xkbEvent_; }
    /// The major opcode of the X Input extension's events; 0 without it.
    std::uint8_t inputOpcode() const { return inputOpcode_; }

    /// Where the colours of a pixel are.
    const xcb_visualtype_t& visual() const { return *visual_; }
    int bitsPerPixel() const { return bitsPerPixel_; }

  private:
    Problem setUp(int screenNumber);
    bool findVisual();
    bool isXwayland() const;

    xcb_connection_t* connection_;
    xcb_screen_t* screen_ = nullptr;
    const xcb_visualtype_t* visual_ = nullptr;
    int bitsPerPixel_ = 0;
    std::uint8_t damageEvent_ = 0;
    std::uint8_t fixesEvent_ = 0;
    std::uint8_t randrEvent_ = 0;
    std::uint8_t xkbEvent_ = 0;
    std::uint8_t inputOpcode_ = 0;
    Problem problem_;
};

}  // namespace zelvo::server
