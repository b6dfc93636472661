#pragma once

#include <functional>
#include <vector>

#include "router/Sockets.h"

namespace zelvo::router {

/// One connection from outside and its counterpart inside: what comes in here goes out there, each
/// direction ending for itself. A side that does not take its data stops the other one's reading.
class Relay {
  public:
    /// `over` is called once when both directions have ended, or either side has failed; the relay
    /// may be destroyed in it. `inside` may still be connecting.
    Relay(EventLoop& loop, platform::FileDescriptor outside, platform::FileDescriptor inside,
          std::function<void()> over);

  private:
    struct Side {
        Side(EventLoop& loop, platform::FileDescriptor opened, EventLoop::Ready ready)
            : socket(std::move(opened)), watch(loop, socket.get(), std::move(ready)) {}

        platform::FileDescriptor socket;
        EventLoop::Watch watch;
        /// What was read here and is still to be written to the other side.
        std::vector<char> pending;
        bool connecting = false;
        bool ended = false;
        bool closed = false;
    };

    void handle(Side& side, Side& other, std::uint32_t events);
    bool read(Side& side);
    bool write(Side& from, Side& to);
    void update(Side& side, const Side& other);
    /// Nothing read is left and nothing more will come: `to` is told, once.
    void passEnd(Side& from, Side& to);

    std::function<void()> over_;
    Side outside_;
    Side inside_;
};

}  // namespace zelvo::router
