#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

struct bufferevent;
struct event_base;
struct ssl_ctx_st;
struct ssl_session_st;

namespace zelvo::bench {

using Clock = std::chrono::steady_clock;

/// One of many clients on one machine: an HTTPS connection from an address of its own in 127/8.
class Client {
  public:
    struct Answer {
        int status = 0;  ///< 0 for a connection that ended without one
        std::string_view head;
        std::string_view body;
        Clock::duration took{0};  ///< with the handshake, where there was one
    };
    using Answered = std::function<void(const Answer&)>;

    struct Place {
        event_base* base = nullptr;
        ssl_ctx_st* tls = nullptr;
        int port = 0;
    };

    /// `number` says which address.
    Client(const Place& place, std::uint32_t number) : place_(place), number_(number) {}
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client();

    /// Connects where there is no connection. One request at a time.
    void send(const std::string& request, Answered answered);
    void hangUp();
    /// From now on the next connection takes up the session of this one.
    void keepSession();
    /// False where this connection should have taken up a session and the server wanted a new one.
    bool hasKept() const;
    bool isConnected() const { return transport_ != nullptr; }

    /// A socket that is being connected and says nothing.
    static int connectFrom(std::uint32_t number, int port);
    static std::string post(std::string_view endpoint, std::string_view body,
                            std::string_view secret = {});

  private:
    void connect();
    void read();
    void finish(const Answer& answer);

    const Place place_;
    const std::uint32_t number_;
    bufferevent* transport_ = nullptr;
    ssl_session_st* session_ = nullptr;
    Clock::time_point begun_;
    Answered answered_;
};

}  // namespace zelvo::bench
