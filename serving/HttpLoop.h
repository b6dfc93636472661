#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/base/FileDescriptor.h"
#include "serving/HttpServer.h"

struct bufferevent_rate_limit_group;
struct event;
struct event_base;
struct evconnlistener;
struct evhttp;
struct evhttp_request;
struct timeval;

namespace zelvo::serving {

struct HttpShared;

/// One event loop with its thread, and its part of the connections.
class HttpLoop {
  public:
    /// Takes as many connections as `most` at once.
    HttpLoop(HttpShared& shared, std::size_t most);
    HttpLoop(const HttpLoop&) = delete;
    HttpLoop& operator=(const HttpLoop&) = delete;
    ~HttpLoop();

    /// Accepts from the socket, of which it takes a descriptor of its own.
    bool listen(int socket);
    void start();
    /// Has the loop end once all is answered. Any thread.
    void beginStop();
    void join();

    event_base* base() const { return base_.get(); }
    HttpShared& shared() const { return shared_; }

    void connectionBegins();
    void connectionEnds();
    /// Many timers of one length cost no more than one.
    void startTimer(event& timer, std::chrono::milliseconds after);

  private:
    template <typename T, void (*release)(T*)>
    struct Releaser {
        void operator()(T* object) const { release(object); }
    };
    template <typename T, void (*release)(T*)>
    using Owned = std::unique_ptr<T, Releaser<T, release>>;

    static void releaseBase(event_base* base);
    static void releaseHttp(evhttp* http);
    static void releaseEvent(event* event);
    static void releaseGroup(bufferevent_rate_limit_group* group);

    void handle(evhttp_request* request);
    void post(std::function<void()> job);
    void runPosted();
    void send(evhttp_request* request, HttpResponse response);
    void accept(bool isOn);
    void run();

    HttpShared& shared_;
    const std::size_t most_;
    std::size_t connections_ = 0;
    std::size_t unanswered_ = 0;
    bool stopping_ = false;

    platform::FileDescriptor bell_;
    std::mutex mutex_;
    std::vector<std::function<void()>> posted_;

    Owned<event_base, &HttpLoop::releaseBase> base_;
    Owned<bufferevent_rate_limit_group, &HttpLoop::releaseGroup> group_;
    Owned<event, &HttpLoop::releaseEvent> bellEvent_;
    std::map<std::chrono::milliseconds, const timeval*> timers_;
    evconnlistener* listener_ = nullptr;  ///< belongs to the server
    Owned<evhttp, &HttpLoop::releaseHttp> http_;
    std::thread thread_;
};

}  // namespace zelvo::serving
