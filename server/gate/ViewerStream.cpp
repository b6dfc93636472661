#include "server/gate/ViewerStream.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace zelvo::server {

namespace {

/// What TLS makes of one record, and no more than a poll should take at once.
constexpr std::size_t largestPart = 16 * 1024;

}  // namespace

void ViewerStream::Free::operator()(ssl_st* tls) const {
    SSL_free(tls);
}

ViewerStream::ViewerStream(platform::FileDescriptor socket) : socket_(std::move(socket)) {}
ViewerStream::ViewerStream(ViewerStream&&) noexcept = default;
ViewerStream& ViewerStream::operator=(ViewerStream&&) noexcept = default;
ViewerStream::~ViewerStream() = default;

bool ViewerStream::beginTls(const AnonymousTls& tls) {
    if (!tls.context() || unsent() > 0)
        return false;
    tls_.reset(SSL_new(tls.context()));
    if (!tls_ || SSL_set_fd(tls_.get(), socket_.get()) != 1)
        return false;
    SSL_set_accept_state(tls_.get());
    return true;
}

bool ViewerStream::isTlsUp() const {
    return tls_ && SSL_is_init_finished(tls_.get());
}

ViewerStream::Result ViewerStream::shakeHands() {
    ERR_clear_error();
    tlsWantsToWrite_ = false;
    const int result = SSL_do_handshake(tls_.get());
    if (result == 1)
        return Result::Ok;
    const int error = SSL_get_error(tls_.get(), result);
    tlsWantsToWrite_ = error == SSL_ERROR_WANT_WRITE;
    return error == SSL_ERROR_WANT_READ || tlsWantsToWrite_ ? Result::Ok : Result::Closed;
}

ViewerStream::Result ViewerStream::read(std::string& to, std::size_t most) {
    const auto before = to.size();
    to.resize(before + std::min(most, largestPart));
    const auto room = to.size() - before;
    auto result = Result::Ok;
    long count = 0;
    if (tls_) {
        ERR_clear_error();
        const int got = SSL_read(tls_.get(), to.data() + before, static_cast<int>(room));
        if (got <= 0) {
            const int error = SSL_get_error(tls_.get(), got);
            if (error != SSL_ERROR_WANT_READ && error != SSL_ERROR_WANT_WRITE)
                result = Result::Closed;
        }
        count = std::max(got, 0);
    } else {
        count = ::recv(socket_.get(), to.data() + before, room, 0);
        if (count == 0 || (count < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR))
            result = Result::Closed;
        count = std::max(count, 0L);
    }
    to.resize(before + static_cast<std::size_t>(count));
    return result;
}

bool ViewerStream::hasMore() const {
    return tls_ && SSL_pending(tls_.get()) > 0;
}

ViewerStream::Result ViewerStream::write(std::string_view bytes) {
    if (unsent() == 0) {
        unsent_.clear();
        sent_ = 0;
        // Most goes at once, and need not be copied.
        while (!bytes.empty()) {
            auto count = sendSome(bytes.substr(0, largestPart));
            if (count < 0)
                return Result::Closed;
            if (count == 0)
                break;
            bytes.remove_prefix(static_cast<std::size_t>(count));
        }
    }
    // What has gone is not kept for long, also where there is always more to send.
    if (sent_ > unsent_.size() / 2) {
        unsent_.erase(0, sent_);
        sent_ = 0;
    }
    unsent_ += bytes;
    return Result::Ok;
}

ViewerStream::Result ViewerStream::flush() {
    while (unsent() > 0) {
        auto count = sendSome(std::string_view(unsent_).substr(sent_, largestPart));
        if (count < 0)
            return Result::Closed;
        if (count == 0)
            return Result::Ok;
        sent_ += static_cast<std::size_t>(count);
    }
    // What a burst took is given back.
    unsent_ = {};
    sent_ = 0;
    return Result::Ok;
}

long ViewerStream::sendSome(std::string_view bytes) {
    if (tls_) {
        ERR_clear_error();
        const int count = SSL_write(tls_.get(), bytes.data(), static_cast<int>(bytes.size()));
        if (count > 0)
            return count;
        const int error = SSL_get_error(tls_.get(), count);
        return error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE ? 0 : -1;
    }
    const auto count = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count >= 0)
        return count;
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR ? 0 : -1;
}

}  // namespace zelvo::server
