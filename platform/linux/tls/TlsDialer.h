#pragma once

#include <chrono>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>

#include "platform/linux/base/EventLoop.h"
#include "platform/linux/tls/TlsConnection.h"

namespace zelvo::platform {

/// Makes connections by TLS, through the proxy that HTTPS_PROXY names where it does. One thread;
/// outlives the connections that it made. SIGPIPE has to be ignored in the process.
class TlsDialer {
  public:
    using Time = EventLoop::Clock::time_point;
    /// Without a connection: libcurl's code, and the system's error where that tells more.
    struct Outcome {
        std::unique_ptr<TlsConnection> connection;
        int code = 0;
        int systemError = 0;
    };
    using Done = std::function<void(Outcome)>;

    /// `certificateFile` holds the authorities that are trusted; empty for the system's own.
    TlsDialer(EventLoop& loop, std::string certificateFile);
    TlsDialer(const TlsDialer&) = delete;
    TlsDialer& operator=(const TlsDialer&) = delete;
    /// Nothing of what is not done yet is told any more.
    ~TlsDialer();

    /// To "name" or "name:port", 443 where none is named. `done` is called once, from `tick`.
    void dial(const std::string& place, std::chrono::milliseconds within, Done done);

    /// When `tick` has to be called, which is also after each turn of the loop.
    Time nextDeadline() const { return wakeAt_; }
    void tick(Time now);

  private:
    static int watchSocket(void*, int socket, int what, void* self, void*);
    static int setTimer(void*, long milliseconds, void* self);
    void finish();

    EventLoop& loop_;
    const std::string certificateFile_;
    /// libcurl's.
    void* multi_;
    /// By libcurl's handle.
    std::map<void*, Done> dialling_;
    std::map<int, std::unique_ptr<EventLoop::Watch>> watches_;
    /// May be destroyed only when none of them is being called.
    std::list<std::unique_ptr<EventLoop::Watch>> goneWatches_;
    Time wakeAt_ = Time::max();
};

}  // namespace zelvo::platform
