#pragma once

#include <event2/event.h>
#include <event2/event_struct.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "serving/ClientAddress.h"
#include "serving/DoorBio.h"
#include "serving/Turns.h"

struct bufferevent;
struct evbuffer;
struct evbuffer_cb_info;
struct ssl_st;

namespace zelvo::serving {

class HttpLoop;

/// What the HTTP library does not know of a client's connection: who the client is, whether it may
/// come in, and by when it has to be done with what it does. Lives as long as its TLS session,
/// which the library ends with the connection. On its loop's thread.
class TlsConnection final : Turns::Guest {
  public:
    /// The transport for a socket that the HTTP library has accepted; null when there is none.
    static bufferevent* make(HttpLoop& loop);
    /// Of a transport that was made so; null for another.
    static TlsConnection* of(bufferevent* transport);

    TlsConnection(const TlsConnection&) = delete;
    TlsConnection& operator=(const TlsConnection&) = delete;
    ~TlsConnection();

    /// Called by the proxy's header, or without one at once. False where the client has to go.
    bool admit(const ClientAddress& client);

    /// Whether the client may ask what is here, for which it is charged once.
    bool requestIsHere();
    void replyBegins();
    void replyIsSent();

    const ClientAddress& client() const { return client_; }

  private:
    enum class Phase { Accepted, Head, Body, Answer, Reply, Rest, Over };

    TlsConnection(HttpLoop& loop, bufferevent* transport);
    static void wake(int, short, void* self);
    static void resume(int, short, void* self);
    static void received(evbuffer* buffer, const evbuffer_cb_info* info, void* self);

    void begin();
    void enter(Phase phase);
    void hangUp();
    Door::Word mayStep();
    void onTurn() override;
    bool holdsBack() const { return waits() && phase_ != Phase::Over; }
    void resumeInATurn();
    bool endsHead(evbuffer* buffer, std::size_t from);

    HttpLoop& loop_;
    bufferevent* transport_;
    event timer_{};
    event resumer_{};
    Phase phase_ = Phase::Accepted;
    int lineEnds_ = 0;
    ClientAddress client_;
    bool hasShare_ = false;
    std::optional<bool> mayAsk_;  ///< the request whose head is here
};

}  // namespace zelvo::serving
