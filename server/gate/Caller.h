#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/base/EventLoop.h"
#include "platform/linux/screen_sharing/messages/GateMessage.h"
#include "server/gate/RfbHandshake.h"
#include "server/gate/ViewerStream.h"

namespace zelvo::server {

/// A connection at the door: says the handshake, then waits. What comes first tells an opener, who
/// speaks at once, from a viewer, who waits to be greeted.
class Caller {
  public:
    using Time = platform::EventLoop::Clock::time_point;

    struct Handlers {
        /// The link that holds at the moment.
        std::function<std::shared_ptr<HeldLink>()> link;
        /// The handshake is over, or the key proven. Once.
        std::function<void()> ready;
        /// The viewer has gone, or is none. Nothing more is called; the caller may be destroyed.
        std::function<void()> gone;
    };

    Caller(platform::EventLoop& loop, const AnonymousTls& tls, platform::FileDescriptor socket,
           const platform::gate::Peer& peer, std::string origin, Handlers handlers);
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;

    const platform::gate::Peer& peer() const { return peer_; }
    /// Where a relay saw it come from; empty for who came directly. Nobody greets who comes through
    /// a relay, which forwards nothing but sealed channels.
    const std::string& origin() const { return origin_; }
    bool isEncrypted() const { return stream_.isEncrypted(); }
    bool isSealed() const { return stream_.line() != nullptr; }
    /// Of somebody who has proven the link's key; null for all others.
    const sealing::SealedChannel* proof() const;
    /// Whether it has an answer that takes the key to be had, but has not proven that it does.
    bool knowsAnswer() const;
    /// Whether it opened a WebSocket, which scanners do not.
    bool isOpener() const { return isSealed() && stream_.line()->isUpgraded(); }

    /// When a viewer who has not said a word is to be greeted; Time::max() once it was, or needs
    /// not be.
    Time greetsAt() const { return greetsAt_; }
    void greet();

    /// Whether it can go on with what is dear, TLS or a sealed channel: its caller's decision, one
    /// at a time.
    bool wantsToAgree() const { return wantsToAgree_; }
    /// How often it did.
    int agreements() const { return agreements_; }
    void agree();

    /// Who has proven the key is told where it stands, if that has changed.
    void tell(const sealing::Standing& standing);

    /// Tells a plain viewer that it is let in, and hands the stream over. Only once ready; of no
    /// use afterwards.
    ViewerStream admit();
    /// Tells the viewer why it is not, in the one way or the other, where there is a way, and hands
    /// the stream over, of which nothing is to be read any more.
    ViewerStream refuse(std::string_view reason, sealing::Farewell farewell);
    /// The same without a word of why.
    ViewerStream release();

  private:
    enum class Kind { Unknown, Plain, Sealed };

    void proceed();
    /// False when the viewer has gone.
    bool talk();
    bool hearFirstWords();
    bool hearRfb();
    void agreeOnTls();
    void hearSealed();
    void watch();

    const AnonymousTls& tls_;
    const platform::gate::Peer peer_;
    const std::string origin_;
    const Handlers handlers_;
    ViewerStream stream_;
    Kind kind_ = Kind::Unknown;
    std::string firstWords_;
    RfbHandshake handshake_;
    Time greetsAt_;
    bool wantsToAgree_ = false;
    int agreements_ = 0;
    std::optional<sealing::Standing> told_;
    platform::EventLoop::Watch watch_;
};

}  // namespace zelvo::server
