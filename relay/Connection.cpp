#include "relay/Connection.h"

#include <event2/event.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <utility>

#include "relay/RelayShared.h"
#include "serving/LoopThread.h"

namespace zelvo::relay {
namespace {

void set(int socket, int level, int option, int value) {
    ::setsockopt(socket, level, option, &value, sizeof value);
}

/// So that a peer that is gone without a word is noticed.
void keepAlive(int socket, int quietSeconds, int betweenProbes) {
    constexpr int probes = 4;
    set(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
    set(socket, IPPROTO_TCP, TCP_KEEPIDLE, quietSeconds);
    set(socket, IPPROTO_TCP, TCP_KEEPINTVL, betweenProbes);
    set(socket, IPPROTO_TCP, TCP_KEEPCNT, probes);
}

}  // namespace

std::unique_ptr<Connection> Connection::accept(RelayShared& shared,
                                               platform::FileDescriptor socket) {
    auto* session = SSL_new(shared.tls()->get());
    if (!session)
        return nullptr;
    std::unique_ptr<Connection> made(new Connection(shared, std::move(socket), session));
    const int descriptor = made->socket_.get();
    const auto peer = serving::ClientAddress::ofPeer(descriptor);
    if (!peer || SSL_set_fd(session, descriptor) != 1)
        return nullptr;
    SSL_set_accept_state(session);
    // What could not be written at once is kept elsewhere until it can.
    SSL_set_mode(session, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    // A record's head and body by one call of the kernel.
    SSL_set_read_ahead(session, 1);
    set(descriptor, IPPROTO_TCP, TCP_NODELAY, 1);
    keepAlive(descriptor, 60, 15);
    auto* self = made.get();
    serving::Door door;
    door.mayStep = [self] { return self->mayStep(); };
    if (shared.options.proxies.contains(*peer))
        door.heard = [self, peer = *peer](const serving::ClientAddress* named) {
            return self->admit(named ? *named : peer);
        };
    else if (!made->admit(*peer))
        return nullptr;
    serving::putBefore(session, std::move(door));
    return made;
}

Connection::Connection(RelayShared& shared, platform::FileDescriptor socket, ssl_st* session)
    : shared_(shared), socket_(std::move(socket)), session_(session) {
    ++shared_.accepted;
    ++shared_.connections;
}

Connection::~Connection() {
    detach();
    SSL_free(session_);
    if (hasShare_)
        shared_.connectionsOf.giveBack(client_.budgetKey());
    --shared_.connections;
}

bool Connection::admit(const serving::ClientAddress& client) {
    client_ = client;
    hasShare_ = shared_.connectionsOf.take(client.budgetKey());
    if (!hasShare_)
        ++shared_.crowdedOut;
    return hasShare_;
}

serving::Door::Word Connection::mayStep() {
    return loop_->turns().take(*this, client_.budgetKey()) ? serving::Door::Word::GoOn
                                                           : serving::Door::Word::Wait;
}

void Connection::onTurn() {
    waitFor(true, false);
    event_active(&event_, EV_READ, 0);
}

void Connection::attach(serving::LoopThread& loop, User& user) {
    detach();
    loop_ = &loop;
    user_ = &user;
}

void Connection::detach() {
    if (awaited_ != 0)
        event_del(&event_);
    awaited_ = 0;
}

void Connection::waitFor(bool reading, bool writing) {
    // Who waits for a turn does not hear of the socket again and again.
    reading = reading && !waits();
    const bool writes = writing || (reading && wantsToWrite_);
    const auto wanted = static_cast<short>((reading ? EV_READ : 0) | (writes ? EV_WRITE : 0));
    if (wanted != awaited_) {
        if (awaited_ != 0)
            event_del(&event_);
        awaited_ = wanted;
        if (wanted != 0) {
            event_assign(&event_, loop_->base(), socket_.get(),
                         static_cast<short>(wanted | EV_PERSIST), &Connection::ready, this);
            event_add(&event_, nullptr);
        }
    }
    // What the session holds already, the socket says nothing of.
    if (reading && SSL_has_pending(session_))
        event_active(&event_, EV_READ, 0);
}

void Connection::ready(int, short what, void* self) {
    auto& connection = *static_cast<Connection*>(self);
    const bool canWrite = (what & EV_WRITE) != 0;
    const bool canRead = (what & EV_READ) != 0 || (canWrite && connection.wantsToWrite_);
    connection.user_->onReady(connection, canRead, canWrite);
}

Connection::Outcome Connection::outcomeOf(int result) {
    const int error = SSL_get_error(session_, result);
    wantsToWrite_ = error == SSL_ERROR_WANT_WRITE;
    return error == SSL_ERROR_WANT_READ || wantsToWrite_ ? Outcome::Again : Outcome::Ended;
}

Connection::Outcome Connection::handshake() {
    ERR_clear_error();
    const int result = SSL_do_handshake(session_);
    if (result == 1) {
        wantsToWrite_ = false;
        return Outcome::Done;
    }
    return outcomeOf(result);
}

Connection::Outcome Connection::read(std::span<char> into, std::size_t& got) {
    ERR_clear_error();
    const int result = SSL_read_ex(session_, into.data(), into.size(), &got);
    return result == 1 ? Outcome::Done : outcomeOf(result);
}

Connection::Outcome Connection::write(std::string_view bytes, std::size_t& sent) {
    ERR_clear_error();
    sent = 0;
    const int result = SSL_write_ex(session_, bytes.data(), bytes.size(), &sent);
    if (result == 1)
        return Outcome::Done;
    const auto outcome = outcomeOf(result);
    // Whoever writes waits for that by itself.
    wantsToWrite_ = false;
    return outcome;
}

void Connection::holdBack(bool isOn) {
    set(socket_.get(), IPPROTO_TCP, TCP_CORK, isOn ? 1 : 0);
}

void Connection::beginCarrying() {
    keepAlive(socket_.get(), 10, 5);
    // What nobody acknowledges counts as silence, too.
    set(socket_.get(), IPPROTO_TCP, TCP_USER_TIMEOUT, 20'000);
}

void Connection::sayEnd() {
    ERR_clear_error();
    SSL_shutdown(session_);
    ::shutdown(socket_.get(), SHUT_WR);
}

}  // namespace zelvo::relay
