#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>

#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::platform {

/// epoll(7), level-triggered.
class EventLoop {
  public:
    using Clock = std::chrono::steady_clock;
    using Ready = std::function<void(std::uint32_t events)>;

    /// One descriptor's place in the loop. It may be destroyed inside any call of a Ready.
    class [[nodiscard]] Watch {
      public:
        Watch(EventLoop& loop, int descriptor, Ready ready);
        Watch(const Watch&) = delete;
        Watch& operator=(const Watch&) = delete;
        ~Watch();

        /// With no events the descriptor rests: not even its end is told.
        void setEvents(std::uint32_t events);

      private:
        EventLoop& loop_;
        int descriptor_;
        std::uint64_t id_;
        std::uint32_t events_ = 0;
    };

    EventLoop();

    /// Readable when a turn has something to do, for a loop around this one.
    int descriptor() const { return epoll_.get(); }

    /// Waits until something is ready or the time has come.
    void turn(Clock::time_point until);

  private:
    FileDescriptor epoll_;
    std::map<std::uint64_t, std::shared_ptr<const Ready>> ready_;
    std::uint64_t nextId_ = 0;
};

}  // namespace zelvo::platform
