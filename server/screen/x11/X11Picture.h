#pragma once

#include <xcb/damage.h>
#include <xcb/shm.h>

#include <cstdint>
#include <span>
#include <vector>

#include "server/screen/Screen.h"
#include "server/screen/x11/X11Connection.h"

namespace zelvo::server {

/// What the root window shows, all monitors in one, and which parts of it change.
class X11Picture {
  public:
    explicit X11Picture(X11Connection& x);
    X11Picture(const X11Picture&) = delete;
    X11Picture& operator=(const X11Picture&) = delete;
    ~X11Picture();

    /// Changes are told as events, and are collected, only while it is watched.
    void setWatched(bool isWatched);
    /// Sets the size that the root window has now.
    void resize(Size size);

    std::vector<Rectangle> capture();

    Size size() const { return size_; }
    std::span<std::uint32_t> pixels() { return pixels_; }

  private:
    void forget();
    std::vector<Rectangle> damage();
    void captureRows(const Rectangle& band, std::vector<Rectangle>& changed);
    /// The pixels of a band as the X server has them; null on failure.
    const std::byte* fetch(const Rectangle& band);
    /// The bytes of a row of the X server's.
    std::size_t stride(int width) const;
    void compare(const Rectangle& band, const std::byte* image, std::vector<Rectangle>& changed);
    void convertRow(const std::byte* from, std::uint32_t* to, int count) const;
    void openSharedMemory();
    void closeSharedMemory();

    X11Connection& x_;
    Size size_;
    std::unique_ptr<std::uint32_t, FreeReply> memory_;
    std::span<std::uint32_t> pixels_;
    bool isWatched_ = false;
    bool wantsAll_ = true;
    xcb_damage_damage_t damage_ = XCB_NONE;
    std::uint32_t region_ = XCB_NONE;

    xcb_shm_seg_t segment_ = XCB_NONE;
    std::byte* shared_ = nullptr;
    /// The image where there is no shared memory.
    Reply<xcb_get_image_reply_t> reply_;
};

}  // namespace zelvo::server
