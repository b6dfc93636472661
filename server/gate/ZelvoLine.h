#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/linux/base/EventLoop.h"
#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/screen_sharing/messages/GateMessage.h"

namespace zelvo::server {

/// The connection to the Zelvo that switched this server on, which lives no longer than it.
class ZelvoLine {
  public:
    struct Handlers {
        std::function<void(const platform::gate::Message&)> message;
        /// Zelvo has ended, or does not speak our language. Once.
        std::function<void()> ended;
    };

    /// Connects to the socket at the path, and waits for the greeting. Null where nobody of our own
    /// user's listens there, or says something else.
    static std::unique_ptr<ZelvoLine> open(platform::EventLoop& loop, const std::string& path,
                                           Handlers handlers);
    ZelvoLine(const ZelvoLine&) = delete;
    ZelvoLine& operator=(const ZelvoLine&) = delete;

    /// A Zelvo that takes nothing for so long that the socket is full has ended for us.
    void tell(const platform::gate::Message& message);
    /// Handles what is there now, as each turn of the loop does.
    void receive();

  private:
    ZelvoLine(platform::EventLoop& loop, platform::FileDescriptor socket, Handlers handlers);
    void end();

    const platform::FileDescriptor socket_;
    const Handlers handlers_;
    bool hasEnded_ = false;
    platform::EventLoop::Watch watch_;
};

}  // namespace zelvo::server
