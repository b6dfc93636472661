#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/screen_sharing/messages/GateMessage.h"
#include "server/screen/Screen.h"
#include "server/vnc/VncServer.h"

namespace zelvo::server {

/// The screen and its viewers, on a thread of their own, so that nothing that happens at the door
/// keeps a picture waiting, nor the other way round. Every operation returns at once.
class ScreenThread {
  public:
    /// `ended` is called once, on that thread, where the screen ends by itself.
    ScreenThread(std::unique_ptr<Screen> screen, std::string name, std::function<void()> ended);
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
    using Task = std::function<void(VncServer&)>;

    void post(Task task);
    void run();

    const std::unique_ptr<Screen> screen_;
    const std::string name_;
    const std::function<void()> ended_;
    platform::FileDescriptor wake_;
    std::atomic<bool> inputPasses_ = true;
    std::mutex mutex_;
    std::vector<Task> tasks_;
    bool isEnding_ = false;
    std::thread thread_;
};

}  // namespace zelvo::server
