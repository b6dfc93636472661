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
    void remove(std::list<std::unique_ptr<Relay>>::iterator relay);

    EventLoop& loop_;
    platform::FileDescriptor listener_;
    Endpoint internal_;
    std::list<std::unique_ptr<Relay>> relays_;
    EventLoop::Watch watch_;
};

}  // namespace zelvo::router
