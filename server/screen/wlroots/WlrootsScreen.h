#pragma once

#include <memory>
#include <string>

#include "platform/linux/base/EventLoop.h"
#include "server/screen/Screen.h"
#include "server/screen/wlroots/WlrootsClipboard.h"
#include "server/screen/wlroots/WlrootsConnection.h"
#include "server/screen/wlroots/WlrootsKeyboard.h"
#include "server/screen/wlroots/WlrootsPicture.h"
#include "server/screen/wlroots/WlrootsPointer.h"

namespace zelvo::server {

/// The desktop of a compositor that lets programs copy its screen, point and type.
class WlrootsScreen : public Screen {
  public:
    /// The connection is a usable one.
    explicit WlrootsScreen(std::unique_ptr<WlrootsConnection> connection);

    Abilities abilities() const override { return {true, clipboard_.isThere()}; }
    int descriptor() const override { return loop_.descriptor(); }
    void dispatch(ScreenObserver& observer) override;
    void setWatched(bool isWatched) override;
    std::vector<Rectangle> capture(ScreenObserver& observer) override;
    Size size() const override { return picture_.size(); }
    std::span<std::uint32_t> pixels() override { return picture_.pixels(); }
    void pointer(Point position, std::uint8_t buttons) override;
    void key(std::uint32_t keysym, bool isDown) override { keyboard_.key(keysym, isDown); }
    void setClipboard(const std::string& text) override { clipboard_.set(text); }

  private:
    void tell(ScreenObserver& observer);
    void send();

    std::unique_ptr<WlrootsConnection> wayland_;
    platform::EventLoop loop_;
    bool isWatched_ = false;
    bool hasChanged_ = false;
    bool hasNewCursor_ = false;
    bool hasEnded_ = false;
    std::string copied_;
    WlrootsPicture picture_;
    WlrootsPointer pointer_;
    WlrootsKeyboard keyboard_;
    WlrootsClipboard clipboard_;
    platform::EventLoop::Watch watch_;
};

}  // namespace zelvo::server
