#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "platform/linux/base/FileDescriptor.h"
#include "server/gate/AnonymousTls.h"

struct ssl_st;

namespace zelvo::server {

/// The bytes from and to a viewer, in clear or within TLS, over a socket that does not block. What
/// cannot be sent at once is kept, in order.
class ViewerStream {
  public:
    enum class Result {
        Ok,
        /// The other side has ended, the connection failed, or it broke the rules of TLS.
        Closed,
    };

    explicit ViewerStream(platform::FileDescriptor socket);
    ViewerStream(ViewerStream&&) noexcept;
    ViewerStream& operator=(ViewerStream&&) noexcept;
    ~ViewerStream();

    int descriptor() const { return socket_.get(); }
    bool isEncrypted() const { return tls_ != nullptr; }

    /// All that is sent from now on is within TLS, of which we are the server. Nothing may wait to
    /// be sent.
    bool beginTls(const AnonymousTls& tls);
    /// Goes on with TLS as far as the bytes that are here allow.
    Result shakeHands();
    bool isTlsUp() const;

    /// Appends at most this many bytes to `to`; fewer, or none, where no more are here.
    Result read(std::string& to, std::size_t most);
    /// Bytes that were received and decrypted already, which no poll would tell of.
    bool hasMore() const;

    Result write(std::string_view bytes);
    /// Sends of what is kept as much as goes.
    Result flush();
    std::size_t unsent() const { return unsent_.size() - sent_; }
    /// Whether the socket has to become writable for anything to go on.
    bool wantsToWrite() const { return unsent() > 0 || tlsWantsToWrite_; }

  private:
    struct Free {
        void operator()(ssl_st* tls) const;
    };

    /// The bytes that went; 0 where none can go now, below 0 where none ever will.
    long sendSome(std::string_view bytes);

    platform::FileDescriptor socket_;
    std::unique_ptr<ssl_st, Free> tls_;
    bool tlsWantsToWrite_ = false;
    std::string unsent_;
    std::size_t sent_ = 0;
};

}  // namespace zelvo::server
