#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/linux/base/EventLoop.h"
#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/screen_sharing/messages/GateMessage.h"
#include "server/screen/Screen.h"
#include "server/vnc/ScrollFinder.h"

struct _rfbClientRec;
struct _rfbScreenInfo;

namespace zelvo::server {

using platform::gate::ViewerId;

/// Shows a screen to viewers who have been let in, and does what they do there. It speaks RFB
/// without security, by LibVNCServer, on sockets whose other ends never keep it waiting: what comes
/// from there is whole messages. One thread, the screen's.
class VncServer : private ScreenObserver {
  public:
    using Time = platform::EventLoop::Clock::time_point;

    /// What viewers do counts only while `inputPasses`, which any thread may set. `screenEnded` is
    /// called once, when the desktop has gone.
    VncServer(platform::EventLoop& loop, Screen& screen, std::string name,
              const std::atomic<bool>& inputPasses, std::function<void(ScreenEnd)> screenEnded);
    VncServer(const VncServer&) = delete;
    VncServer& operator=(const VncServer&) = delete;
    ~VncServer() override;

    void admit(ViewerId viewer, platform::FileDescriptor socket, platform::gate::Rights rights);
    /// Whoever only watches is told nothing of the clipboard, and lets go what it held down.
    void setRights(ViewerId viewer, platform::gate::Rights rights);
    /// What viewers hold down is let go.
    void releaseInput();

    /// When `tick` has to be called next; Time::max() where nothing waits.
    Time nextDeadline() const;
    /// Captures where that is due, sends what there is to send, and lets go of who has left. To be
    /// called after each turn of the loop.
    void tick(Time now);

  private:
    struct Viewer;

    void screenChanged() override;
    void cursorChanged(const Cursor& cursor) override;
    void cursorMoved(Point position) override;
    void clipboardChanged(const std::string& text) override;
    void screenEnded(ScreenEnd end) override;

    void capture(Time now);
    std::optional<ScrollFinder::Scroll> findScroll(const std::vector<Rectangle>& changed);
    bool anybodyWaits() const;
    void fitToScreen();
    void key(Viewer& viewer, std::uint32_t keysym, bool isDown);
    void pointer(Viewer& viewer, Point position, std::uint8_t buttons);
    /// Somebody acts: what comes of it is captured without delay.
    void beEager();
    void release(Viewer& viewer);
    void letGo(std::uint32_t keysym);
    void freePointer();
    void removeGone();
    /// To those in control who take it in this form.
    void sendClipboard(bool inUtf8, const std::function<void()>& send);

    platform::EventLoop& loop_;
    Screen& screen_;
    const std::string name_;
    const std::atomic<bool>& inputPasses_;
    const std::function<void(ScreenEnd)> screenEnded_;
    _rfbScreenInfo* vnc_ = nullptr;
    Size size_;
    std::map<ViewerId, std::unique_ptr<Viewer>> viewers_;
    ScrollFinder scrolls_;
    bool hasChanged_ = false;
    Time captureAgain_;
    Time eagerUntil_;
    platform::EventLoop::Watch watch_;
};

}  // namespace zelvo::server
