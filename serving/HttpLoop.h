#pragma once

#include <chrono>
#include <memory>
#include <vector>

#include "serving/HttpServer.h"
#include "serving/LoopThread.h"
#include "serving/PlainClients.h"

struct bufferevent;
struct bufferevent_rate_limit_group;
struct evconnlistener;
struct evhttp;
struct evhttp_request;

namespace zelvo::serving {

struct HttpShared;

/// One event loop with its thread, and its part of the connections.
class HttpLoop {
  public:
    /// When somebody has taken all bytes of a turn, everybody waits for the next one.
    static constexpr std::chrono::milliseconds Turn{50};

    /// Takes as many connections as `most` at once; without TLS somebody silent makes room.
    HttpLoop(HttpShared& shared, std::size_t most);
    HttpLoop(const HttpLoop&) = delete;
    HttpLoop& operator=(const HttpLoop&) = delete;
    ~HttpLoop();

    /// Accepts from the socket, of which it takes a descriptor of its own.
    bool listen(int socket);
    void start();
    /// Has the loop end once all is answered. Any thread.
    void beginStop();
    void join() { loop_.join(); }

    LoopThread& loop() { return loop_; }
    HttpShared& shared() const { return shared_; }

    void connectionBegins();
    void connectionEnds();

  private:
    template <typename T, void (*release)(T*)>
    struct Releaser {
        void operator()(T* object) const { release(object); }
    };
    template <typename T, void (*release)(T*)>
    using Owned = std::unique_ptr<T, Releaser<T, release>>;

    static void releaseHttp(evhttp* http);
    static void releaseGroup(bufferevent_rate_limit_group* group);

    bufferevent* makePlain();
    void welcomePlain();
    void handle(evhttp_request* request);
    void send(evhttp_request* request, HttpResponse response);
    void accept(bool isOn);
    void pauseAfterSome();
    void endOnceAnswered();
    void endIfAnswered();

    HttpShared& shared_;
    const std::size_t most_;
    std::size_t connections_ = 0;  ///< over TLS
    PlainClients plain_;
    std::vector<bufferevent*> accepted_;  ///< without TLS, and without their sockets yet
    std::size_t unanswered_ = 0;
    int acceptedInRound_ = 0;
    bool stopping_ = false;
    bool isEnding_ = false;  ///< unless something is unanswered in a moment

    LoopThread loop_{LoopThread::Descriptors::Stay};
    Owned<bufferevent_rate_limit_group, &HttpLoop::releaseGroup> group_;
    evconnlistener* listener_ = nullptr;  ///< belongs to the server
    Owned<evhttp, &HttpLoop::releaseHttp> http_;
};

}  // namespace zelvo::serving
