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

struct ViewerStream::Sealed {
    explicit Sealed(std::shared_ptr<HeldLink> held)
        : link(std::move(held)), line(sealing::SealedLine::host(link->key, link->replays)) {}

    std::shared_ptr<HeldLink> link;
    sealing::SealedLine line;
    std::string output;
    std::size_t sent = 0;
};

void ViewerStream::FreeSealed::operator()(Sealed* sealed) const {
    delete sealed;
}

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

void ViewerStream::beginSealed(std::shared_ptr<HeldLink> link, std::string_view first) {
    sealed_.reset(new Sealed(std::move(link)));
    sealed_->line.receive(first);
}

sealing::SealedLine* ViewerStream::line() {
    return sealed_ ? &sealed_->line : nullptr;
}

const sealing::SealedLine* ViewerStream::line() const {
    return sealed_ ? &sealed_->line : nullptr;
}

std::size_t ViewerStream::unsent() const {
    return unsent_.size() - sent_ + (sealed_ ? sealed_->output.size() - sealed_->sent : 0);
}

ViewerStream::Result ViewerStream::readSealed(std::string& to, std::size_t most) {
    std::string bytes(std::min(most, largestPart), '\0');
    const auto count = ::recv(socket_.get(), bytes.data(), bytes.size(), 0);
    if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR))
        return Result::Ok;
    auto& line = sealed_->line;
    if (count > 0)
        line.receive(std::string_view(bytes).substr(0, static_cast<std::size_t>(count)));
    else
        line.end();
    if (to.empty())
        to = line.takeData();
    else
        to += line.takeData();
    const auto flushed = flush();
    using State = sealing::SealedLine::State;
    return line.state() == State::Proving || line.state() == State::Open ? flushed : Result::Closed;
}

ViewerStream::Result ViewerStream::read(std::string& to, std::size_t most) {
    if (sealed_)
        return readSealed(to, most);
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
    // The channel's own words, also where nothing of a screen waits behind them.
    if (sealed_ && !sendSealed())
        return Result::Closed;
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
    if (sealed_) {
        const auto hasRoom = sendSealed();
        if (!hasRoom.value_or(false))
            return hasRoom ? 0 : -1;
        sealed_->line.send(bytes);
        return sendSealed() ? static_cast<long>(bytes.size()) : -1;
    }
    if (tls_) {
        ERR_clear_error();
        const int count = SSL_write(tls_.get(), bytes.data(), static_cast<int>(bytes.size()));
        if (count > 0)
            return count;
        const int error = SSL_get_error(tls_.get(), count);
        return error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE ? 0 : -1;
    }
    return sendInClear(bytes);
}

long ViewerStream::sendInClear(std::string_view bytes) {
    const auto count = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count >= 0)
        return count;
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR ? 0 : -1;
}

std::optional<bool> ViewerStream::sendSealed() {
    auto& [link, line, output, sent] = *sealed_;
    while (true) {
        if (sent == output.size()) {
            output = line.takeOutput();
            sent = 0;
            if (output.empty())
                return true;
        }
        const auto count = sendInClear(std::string_view(output).substr(sent));
        if (count <= 0)
            return count == 0 ? std::optional(false) : std::nullopt;
        sent += static_cast<std::size_t>(count);
    }
}

}  // namespace zelvo::server
