#pragma once

#include <functional>
#include <map>
#include <memory>

#include "platform/linux/nat/base/NatClock.h"

namespace zelvo::platform {

/// Waits for many descriptors on one thread.
class PollLoop {
  public:
    using Ready = std::function<void(short events)>;

    /// Watches until it is destroyed, which may happen inside any call of a Ready.
    class [[nodiscard]] Watch {
      public:
        Watch(PollLoop& loop, int id) : loop_(loop), id_(id) {}
        Watch(const Watch&) = delete;
        Watch& operator=(const Watch&) = delete;
        ~Watch() { loop_.entries_.erase(id_); }

        void setEvents(short events) { loop_.entries_.at(id_).events = events; }

      private:
        PollLoop& loop_;
        int id_;
    };

    static NatTime now();

    /// `events` as of poll(2).
    std::unique_ptr<Watch> watch(int descriptor, short events, Ready ready);
    /// Waits until a descriptor is ready or the time has come, and calls whoever is concerned.
    void turn(NatTime until);

  private:
    struct Entry {
        int descriptor;
        short events;
        std::shared_ptr<const Ready> ready;
    };

    std::map<int, Entry> entries_;
    int nextId_ = 0;
};

}  // namespace zelvo::platform
