#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/screen_sharing/messages/GateMessage.h"
#include "server/screen/ScreenOpening.h"
#include "server/vnc/TaskQueue.h"
#include "server/vnc/VncServer.h"

namespace zelvo::server {

/// The screen and its viewers, on a thread of their own, so that nothing that happens at the door
/// keeps a picture waiting, nor the other way round. Every operation returns at once.
class ScreenThread {
  public:
    using Open = std::function<std::unique_ptr<ScreenOpening>()>;
    /// Called on that thread, each at most once.
    struct Handlers {
        /// The desktop asks the user.
        std::function<void()> asksUser;
        /// There is a screen, or none. The former may be looked at.
        std::function<void(const ScreenResult& result)> opened;
        /// The screen that there was ends by itself.
        std::function<void(ScreenEnd)> ended;
    };

    ScreenThread(Open open, std::string name, Handlers handlers);
    ScreenThread(const ScreenThread&) = delete;
    ScreenThread& operator=(const ScreenThread&) = delete;
    /// Ends the viewers' connections, lets go what they held down, and waits for that.
    ~ScreenThread();

    void admit(ViewerId viewer, platform::FileDescriptor socket, platform::gate::Rights rights);
    void setRights(ViewerId viewer, platform::gate::Rights rights);
    /// Without it, what viewers do is dropped, also what has been on its way to the screen, and
    /// what they hold down is let go.
    void setInputPasses(bool passes);

  private:
    void run();
    std::unique_ptr<Screen> open(platform::EventLoop& loop);

    const Open open_;
    const std::string name_;
    const Handlers handlers_;
    TaskQueue<VncServer&> tasks_;
    std::atomic<bool> inputPasses_ = true;
    std::atomic<bool> isEnding_ = false;
    std::thread thread_;
};

}  // namespace zelvo::server
