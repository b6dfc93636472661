#pragma once

#include <pipewire/pipewire.h>

#include <functional>

#include "platform/linux/base/EventLoop.h"
#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::server {

/// A connection to PipeWire, in turns of a loop. One thread, from its beginning to its end.
class PipeWireRemote {
  public:
    /// `ended` is called where PipeWire has gone, also before this is back.
    PipeWireRemote(platform::EventLoop& loop, platform::FileDescriptor socket,
                   std::function<void()> ended);
    PipeWireRemote(const PipeWireRemote&) = delete;
    PipeWireRemote& operator=(const PipeWireRemote&) = delete;
    ~PipeWireRemote();

    /// Null where there is no connection.
    pw_core* core() const { return core_; }

  private:
    const std::function<void()> ended_;
    pw_loop* loop_ = nullptr;
    pw_context* context_ = nullptr;
    pw_core* core_ = nullptr;
    spa_hook listener_{};
    platform::EventLoop::Watch watch_;
};

}  // namespace zelvo::server
