#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/base/FileDescriptor.h"
#include "sealing/SealedLine.h"
#include "server/gate/AnonymousTls.h"
#include "server/gate/HeldLink.h"

struct ssl_st;

namespace zelvo::server {

/// The bytes from and to a viewer, in clear, within TLS or within a sealed channel, over a socket
/// that does not block. What cannot be sent at once is kept, in order.
class ViewerStream {
  public:
    enum class Result {
        Ok,
        /// The other side has ended, the connection failed, or it broke the rules of TLS or of the
        /// channel.
        Closed,
    };

    explicit ViewerStream(platform::FileDescriptor socket);
    ViewerStream(ViewerStream&&) noexcept;
    ViewerStream& operator=(ViewerStream&&) noexcept;
    ~ViewerStream();

    int descriptor() const { return socket_.get(); }
    bool isEncrypted() const { return tls_ || sealed_; }

    /// All that is sent from now on is within TLS, of which we are the server. Nothing may wait to
    /// be sent.
    bool beginTls(const AnonymousTls& tls);
    /// Goes on with TLS as far as the bytes that are here allow.
    Result shakeHands();
    bool isTlsUp() const;

    /// From its begin on, of which `first` has been read already, this is a sealed channel, of
    /// which we are the host.
    void beginSealed(std::shared_ptr<HeldLink> link, std::string_view first);
    /// Null unless it is sealed. What is told it goes out with the next write or flush, before
    /// anything that is kept; once it is closed that is not sent any more.
    sealing::SealedLine* line();
    const sealing::SealedLine* line() const;

    /// Reads at most this many bytes, and appends to `to` what they are; fewer, or none, where no
    /// more are here.
    Result read(std::string& to, std::size_t most);
    /// Bytes that were received and decrypted already, which no poll would tell of.
    bool hasMore() const;

    Result write(std::string_view bytes);
    /// Sends of what is kept as much as goes.
    Result flush();
    std::size_t unsent() const;
    /// Whether the socket has to become writable for anything to go on.
    bool wantsToWrite() const { return unsent() > 0 || tlsWantsToWrite_; }

  private:
    struct Free {
        void operator()(ssl_st* tls) const;
    };

    /// A sealed channel, and what it has sealed that did not go yet. What waits is sealed as late
    /// as can be, so that the channel's own words need not wait for it.
    struct Sealed;
    struct FreeSealed {
        void operator()(Sealed* sealed) const;
    };

    Result readSealed(std::string& to, std::size_t most);
    /// The bytes that went; 0 where none can go now, below 0 where none ever will.
    long sendSome(std::string_view bytes);
    long sendInClear(std::string_view bytes);
    /// Whether all that was sealed has gone; none where it never will.
    std::optional<bool> sendSealed();

    platform::FileDescriptor socket_;
    std::unique_ptr<ssl_st, Free> tls_;
    std::unique_ptr<Sealed, FreeSealed> sealed_;
    bool tlsWantsToWrite_ = false;
    std::string unsent_;
    std::size_t sent_ = 0;
};

}  // namespace zelvo::server
