#pragma once

#include <list>
#include <memory>

#include "router/Relay.h"
#include "router/Sockets.h"

namespace zelvo::router {

/// Listens on an external port and relays whoever connects to the internal one. Its end closes the
/// port and every connection through it.
class Forwarding {
  public:
    Forwarding(EventLoop& loop, platform::FileDescriptor listener, const Endpoint& internal);

    std::size_t connections() const { return relays_.size(); }

  private:
    void acceptAll();
    /// Whoever waits while there are no descriptors left would wake the loop again and again.
    bool refuse();
    void remove(std::list<std::unique_ptr<Relay>>::iterator relay);

    EventLoop& loop_;
    platform::FileDescriptor listener_;
    /// Given up for a moment to accept, and close, what cannot be served.
    platform::FileDescriptor spare_;
    Endpoint internal_;
    std::list<std::unique_ptr<Relay>> relays_;
    EventLoop::Watch watch_;
};

}  // namespace zelvo::router
