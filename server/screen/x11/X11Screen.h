#pragma once

#include <memory>
#include <string>

#include "server/screen/Screen.h"
#include "server/screen/x11/X11Clipboard.h"
#include "server/screen/x11/X11Connection.h"
#include "server/screen/x11/X11Keyboard.h"
#include "server/screen/x11/X11Picture.h"

namespace zelvo::server {

/// The desktop of an X server.
class X11Screen : public Screen {
  public:
    /// The connection is one without a problem.
    explicit X11Screen(std::unique_ptr<X11Connection> connection);

    int descriptor() const override { return x_->descriptor(); }
    void dispatch(ScreenObserver& observer) override;
    void setWatched(bool isWatched) override;
    std::vector<Rectangle> capture(ScreenObserver& observer) override;
    Size size() const override { return picture_.size(); }
    std::span<std::uint32_t> pixels() override { return picture_.pixels(); }
    void pointer(Point position, std::uint8_t buttons) override;
    void key(std::uint32_t keysym, bool isDown) override { keyboard_.key(keysym, isDown); }
    void setClipboard(const std::string& text) override { clipboard_.set(text); }

  private:
    void handle(const xcb_generic_event_t& event);
    void tell(ScreenObserver& observer);
    void tellCursor(ScreenObserver& observer);
    void tellPosition(ScreenObserver& observer);

    std::unique_ptr<X11Connection> x_;
    X11Picture picture_;
    X11Keyboard keyboard_;
    std::string copied_;
    X11Clipboard clipboard_;
    bool isWatched_ = false;
    bool hasNewCursor_ = false;
    bool hasMoved_ = false;
    bool hasChanged_ = false;
    bool hasEnded_ = false;
    Size newSize_;
    std::uint8_t buttons_ = 0;
};

}  // namespace zelvo::server
