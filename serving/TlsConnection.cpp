#include "serving/TlsConnection.h"

#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/bufferevent_ssl.h>
#include <event2/bufferevent_struct.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <array>
#include <utility>

#include "serving/Expectation.h"
#include "serving/HttpLoop.h"
#include "serving/HttpShared.h"

namespace zelvo::serving {
namespace {

/// Where a TLS session keeps the connection that ends with it.
int sessionSlot() {
    static const int slot =
        SSL_get_ex_new_index(0, nullptr, nullptr, nullptr,
                             [](void*, void* connection, CRYPTO_EX_DATA*, int, long, void*) {
                                 delete static_cast<TlsConnection*>(connection);
                             });
    return slot;
}

}  // namespace

bufferevent* TlsConnection::make(HttpLoop& loop) {
    const auto tls = loop.shared().tls();
    auto* session = SSL_new(tls->get());
    if (!session)
        return nullptr;
    auto* transport = bufferevent_openssl_socket_new(
        loop.loop().base(), -1, session, BUFFEREVENT_SSL_ACCEPTING, BEV_OPT_CLOSE_ON_FREE);
    if (!transport) {
        SSL_free(session);
        return nullptr;
    }
    // Many clients just close; what they have sent by then counts.
    bufferevent_openssl_set_allow_dirty_shutdown(transport, 1);
    SSL_set_ex_data(session, sessionSlot(), new TlsConnection(loop, transport));
    return transport;
}

TlsConnection* TlsConnection::of(bufferevent* transport) {
    auto* session = bufferevent_openssl_get_ssl(transport);
    return session ? static_cast<TlsConnection*>(SSL_get_ex_data(session, sessionSlot())) : nullptr;
}

TlsConnection::TlsConnection(HttpLoop& loop, bufferevent* transport)
    : loop_(loop), transport_(transport) {
    loop_.connectionBegins();
    evbuffer_add_cb(bufferevent_get_input(transport), &TlsConnection::received, this);
    event_assign(&timer_, loop.loop().base(), -1, EV_TIMEOUT, &TlsConnection::wake, this);
    event_assign(&resumer_, loop.loop().base(), -1, EV_TIMEOUT, &TlsConnection::resume, this);
    // The library gives the transport its socket only after this; what is to be done with it comes
    // before anything is read.
    event_active(&timer_, EV_TIMEOUT, 1);
}

TlsConnection::~TlsConnection() {
    event_del(&timer_);
    event_del(&resumer_);
    if (hasShare_)
        loop_.shared().connectionsOf.giveBack(client_.budgetKey());
    loop_.connectionEnds();
}

void TlsConnection::wake(int, short, void* self) {
    auto& connection = *static_cast<TlsConnection*>(self);
    if (connection.phase_ == Phase::Accepted)
        return connection.begin();
    ++connection.loop_.shared().overdue;
    connection.hangUp();
}

void TlsConnection::begin() {
    enter(Phase::Head);
    const int socket = bufferevent_getfd(transport_);
    const int on = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const auto peer = ClientAddress::ofPeer(socket);
    if (!peer)
        return hangUp();
    Door door;
    door.mayStep = [this] { return mayStep(); };
    if (loop_.shared().options.proxies.contains(*peer))
        door.heard = [this, peer = *peer](const ClientAddress* named) {
            return admit(named ? *named : peer);
        };
    else if (!admit(*peer))
        return hangUp();
    putBefore(bufferevent_openssl_get_ssl(transport_), std::move(door));
    // There is nothing to be said before something is heard.
    event_del(&transport_->ev_write);
}

/// While it waits the loop is not to hear of the socket again and again. The library would begin to
/// listen after this call, so it is stopped once that is over.
Door::Word TlsConnection::mayStep() {
    if (phase_ == Phase::Over)
        return Door::Word::End;
    if (loop_.loop().turns().take(*this, client_.budgetKey()))
        return Door::Word::GoOn;
    event_active(&resumer_, EV_TIMEOUT, 1);
    return Door::Word::Wait;
}

void TlsConnection::onTurn() {
    event_active(&transport_->ev_read, EV_READ, 1);
}

bool TlsConnection::admit(const ClientAddress& client) {
    client_ = client;
    hasShare_ = loop_.shared().connectionsOf.take(client.budgetKey());
    if (!hasShare_)
        ++loop_.shared().crowdedOut;
    return hasShare_;
}

bool TlsConnection::requestIsHere() {
    enter(Phase::Answer);
    // One that came together with the request before has not been seen yet.
    const auto mayAsk = std::exchange(mayAsk_, std::nullopt);
    return mayAsk ? *mayAsk : loop_.shared().requestsOf.take(client_.budgetKey());
}

void TlsConnection::replyBegins() {
    enter(Phase::Reply);
}

void TlsConnection::replyIsSent() {
    enter(evbuffer_get_length(bufferevent_get_input(transport_)) > 0 ? Phase::Head : Phase::Rest);
}

void TlsConnection::enter(Phase phase) {
    phase_ = phase;
    lineEnds_ = 0;
    event_del(&timer_);
    const auto& options = loop_.shared().options;
    switch (phase) {
        case Phase::Head:
            return loop_.loop().startTimer(timer_, options.headTime);
        case Phase::Body:
            return loop_.loop().startTimer(timer_, options.bodyTime);
        case Phase::Reply:
            return loop_.loop().startTimer(timer_, options.replyTime);
        case Phase::Rest:
            return loop_.loop().startTimer(timer_, options.restTime);
        case Phase::Accepted:
        case Phase::Answer:
        case Phase::Over:
            return;
    }
}

/// The library sees the end of the connection and lets go of it, and this object with it.
void TlsConnection::hangUp() {
    phase_ = Phase::Over;
    if (waits())
        event_active(&transport_->ev_read, EV_READ, 1);
    shutdown(bufferevent_getfd(transport_), SHUT_RDWR);
}

void TlsConnection::received(evbuffer* buffer, const evbuffer_cb_info* info, void* self) {
    if (info->n_added == 0)
        return;
    auto& connection = *static_cast<TlsConnection*>(self);
    if (connection.phase_ == Phase::Rest)
        connection.enter(Phase::Head);
    if (connection.phase_ == Phase::Head &&
        connection.endsHead(buffer, info->orig_size - info->n_deleted)) {
        auto& shared = connection.loop_.shared();
        spoilTooGreatExpectation(buffer, shared.options.bodyLength);
        connection.mayAsk_ = shared.requestsOf.take(connection.client_.budgetKey());
        if (!*connection.mayAsk_)
            dropBody(buffer);
        connection.enter(Phase::Body);
    }
    connection.resumeInATurn();
    // The library counts what is in the body's parts, but not the line that gives a part's length.
    const auto& options = connection.loop_.shared().options;
    if (connection.phase_ == Phase::Body &&
        evbuffer_get_length(buffer) > options.headLength + options.bodyLength)
        connection.hangUp();
}

/// Where the loop's share of bytes is used up amid a record, the library goes on once there is more
/// on the socket; but the rest of the record has left that already, and may be all that was
/// missing.
void TlsConnection::resumeInATurn() {
    if (SSL_pending(bufferevent_openssl_get_ssl(transport_)) > 0)
        loop_.loop().startTimer(resumer_, HttpLoop::Turn);
}

void TlsConnection::resume(int, short, void* self) {
    auto& connection = *static_cast<TlsConnection*>(self);
    if (connection.holdsBack())
        return void(event_del(&connection.transport_->ev_read));
    if (SSL_pending(bufferevent_openssl_get_ssl(connection.transport_)) == 0)
        return;
    // While it may not read, it does nothing.
    event_active(&connection.transport_->ev_read, EV_READ, 1);
    connection.resumeInATurn();
}

/// Whether an empty line is among the bytes from there on: only for the deadline's sake, so it may
/// be generous about what a head is.
bool TlsConnection::endsHead(evbuffer* buffer, std::size_t from) {
    evbuffer_ptr at{};
    if (evbuffer_ptr_set(buffer, &at, from, EVBUFFER_PTR_SET) != 0)
        return false;
    std::array<evbuffer_iovec, 16> parts{};
    const int count = evbuffer_peek(buffer, -1, &at, parts.data(), parts.size());
    for (int i = 0; i < count && i < static_cast<int>(parts.size()); ++i) {
        const auto* bytes = static_cast<const char*>(parts[i].iov_base);
        for (std::size_t k = 0; k < parts[i].iov_len; ++k) {
            if (bytes[k] == '\n')
                ++lineEnds_;
            else if (bytes[k] != '\r')
                lineEnds_ = 0;
            if (lineEnds_ == 2)
                return true;
        }
    }
    return false;
}

}  // namespace zelvo::serving
