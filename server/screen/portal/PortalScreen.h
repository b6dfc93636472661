#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/base/EventLoop.h"
#include "server/screen/Screen.h"
#include "server/screen/portal/MonitorLayout.h"
#include "server/screen/portal/PipeWireRemote.h"
#include "server/screen/portal/PipeWireStream.h"
#include "server/screen/portal/PortalSession.h"
#include "server/screen/portal/Timer.h"

namespace zelvo::server {

/// A desktop that its portal shows through PipeWire. It is a screen once `isShown`.
class PortalScreen : public Screen {
  public:
    /// Leave that lasts is kept in the file.
    explicit PortalScreen(std::string tokenFile);

    /// Asks the portal. What comes of it shows after turns.
    void start() { session_.start(); }
    void turn() { loop_.turn({}); }
    bool asksUser() const { return session_.asksUser(); }
    /// Whether the user, if there was one to ask, has said yes.
    bool hasStarted() const { return layout_.has_value(); }
    /// Each monitor has had a picture. Captures it, and rests the monitors until somebody watches.
    bool becomesShown();
    std::optional<PortalSession::Failure> failure() const { return failure_; }

    Abilities abilities() const override {
        return {session_.takesInput(), session_.offersInput(), session_.clipboard().isThere()};
    }
    int descriptor() const override { return loop_.descriptor(); }
    void dispatch(ScreenObserver& observer) override;
    void setWatched(bool isWatched) override;
    std::vector<Rectangle> capture(ScreenObserver& observer) override;
    Size size() const override { return layout_->size(); }
    std::span<std::uint32_t> pixels() override { return pixels_; }
    void pointer(Point position, std::uint8_t buttons) override;
    void key(std::uint32_t keysym, bool isDown) override;
    void setClipboard(const std::string& text) override { session_.clipboard().set(text); }

  private:
    void openStreams();
    void movePointer(const MonitorLayout::Monitor& monitor, Point point);
    void resize(std::size_t monitor, Size size);
    void fail(PortalSession::Failure failure);

    const bool pointsByPixels_;
    platform::EventLoop loop_;
    Timer untilBroken_{loop_, [this] { fail(PortalSession::Failure::Broken); }};
    PortalSession session_;
    std::unique_ptr<PipeWireRemote> pipeWire_;
    std::optional<MonitorLayout> layout_;
    /// In the order of the layout's monitors.
    std::vector<std::unique_ptr<PipeWireStream>> streams_;
    std::vector<std::uint32_t> pixels_;

    std::optional<PortalSession::Failure> failure_;
    bool hasToldEnd_ = false;
    bool isWatched_ = false;
    bool hasChanged_ = false;
    std::optional<Cursor> newCursor_;
    std::optional<Point> newPosition_;
    std::string copied_;

    std::optional<Point> position_;
    std::uint8_t buttons_ = 0;
};

}  // namespace zelvo::server
