#pragma once

#include <cstdint>

#include "server/screen/wlroots/WlrootsConnection.h"
#include "server/screen/wlroots/WlrootsPicture.h"

namespace zelvo::server {

/// A pointing device of our own.
class WlrootsPointer {
  public:
    explicit WlrootsPointer(WlrootsConnection& wayland);
    WlrootsPointer(const WlrootsPointer&) = delete;
    WlrootsPointer& operator=(const WlrootsPointer&) = delete;
    /// Lets everything go.
    ~WlrootsPointer();

    /// Buttons as RFC 6143, section 7.5.5 has them.
    void set(const WlrootsPicture::Aim& aim, std::uint8_t buttons);

  private:
    void setButtons(std::uint8_t buttons);

    WlrootsConnection& wayland_;
    Proxy<zwlr_virtual_pointer_v1> pointer_;
    std::uint8_t buttons_ = 0;
};

}  // namespace zelvo::server
