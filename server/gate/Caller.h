#pragma once

#include <functional>
#include <string_view>

#include "platform/linux/base/EventLoop.h"
#include "platform/linux/screen_sharing/messages/GateMessage.h"
#include "server/gate/RfbHandshake.h"
#include "server/gate/ViewerStream.h"

namespace zelvo::server {

/// A connection at the door: says the handshake, then waits without a word, its bytes unread.
class Caller {
  public:
    struct Handlers {
        /// The handshake is over. Once.
        std::function<void()> ready;
        /// The viewer has gone, or is none. Nothing more is called; the caller may be destroyed.
        std::function<void()> gone;
    };

    Caller(platform::EventLoop& loop, const AnonymousTls& tls, platform::FileDescriptor socket,
           const platform::gate::Peer& peer, Handlers handlers);
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;

    const platform::gate::Peer& peer() const { return peer_; }
    bool isEncrypted() const { return stream_.isEncrypted(); }
    /// Whether it can go on with TLS: dear enough to be its caller's decision, one at a time.
    bool wantsToAgree() const { return wantsToAgree_; }
    void agree();

    /// Tells the viewer that it is let in, and hands its stream over. Only once ready; of no use
    /// afterwards.
    ViewerStream admit();
    /// Tells the viewer why it is not, where there is a way, and hands the socket over, of which
    /// nothing is to be read any more.
    ViewerStream refuse(std::string_view reason);

  private:
    void proceed();
    /// False when the viewer has gone.
    bool talk();
    void watch();

    const AnonymousTls& tls_;
    const platform::gate::Peer peer_;
    const Handlers handlers_;
    ViewerStream stream_;
    RfbHandshake handshake_;
    bool wantsToAgree_ = false;
    platform::EventLoop::Watch watch_;
};

}  // namespace zelvo::server
