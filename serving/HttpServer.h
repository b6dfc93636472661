#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "serving/Budgets.h"
#include "serving/ClientAddress.h"

namespace zelvo::serving {

class HttpLoop;
class Metrics;
class TlsContext;
struct HttpShared;

/// One request, here in full. What it refers to lasts until the handler returns.
struct HttpRequest {
    std::string_view method;
    std::string_view path;
    std::string_view query;  ///< what follows the question mark
    std::string_view body;
    ClientAddress client;  ///< as a trusted proxy says it, where there is one
    int port = 0;          ///< of the other end of the connection
    /// The value of a header; empty without one.
    std::function<std::string_view(const char* name)> header;
    /// Of one that may be there several times.
    std::function<std::vector<std::string_view>(std::string_view name)> headers;
};

struct HttpResponse {
    int status = 200;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
};

/// HTTP by libevent, one event loop for each core and none for each connection. Whoever connects is
/// a stranger: every wait has a deadline and every client its share.
class HttpServer {
  public:
    using Respond = std::function<void(HttpResponse)>;
    /// Runs on a loop, which it must not hold up. Respond is called exactly once, then or later, on
    /// any thread.
    using Handler = std::function<void(const HttpRequest&, Respond)>;

    struct Options {
        std::size_t loops = 0;  ///< 0: one a core
        std::size_t headLength = 16 * 1024;
        std::size_t bodyLength = 4 * 1024 * 1024;
        std::chrono::milliseconds headTime{5000};  ///< from the connection's or the head's begin
        std::chrono::milliseconds bodyTime{10000};
        std::chrono::milliseconds replyTime{10000};  ///< until the client has taken it
        std::chrono::milliseconds restTime{60000};   ///< between requests
        /// At once; 0: as many as the process may open. The next one waits, or without TLS has who
        /// has asked nothing for longest give way.
        std::size_t connections = 0;
        std::size_t connectionsPerClient = 0;  ///< 0: no limit
        Allowances::Rate requestsPerClient = {};
        /// Bytes that all clients of a loop together may send in a second; 0: no limit.
        std::size_t bytesPerSecond = 0;
        /// Who speaks the PROXY protocol before a client's own bytes, and has to.
        std::set<ClientAddress> proxies = {};
        /// What a client is answered that asks too often, by the HTTP status.
        std::function<HttpResponse(int status)> refusal = {};
        Metrics* metrics = nullptr;
    };

    HttpServer(Handler handler, Options options);
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;
    /// Stops. No request may be unanswered any more, or be answered later.
    ~HttpServer();

    /// From now on new connections are TLS in this way; null for without. Any thread.
    void setTls(std::shared_ptr<const TlsContext> tls);
    /// Listens on the address; port 0 picks a free one. The port, or nothing when it is taken or
    /// not ours to use. From then on clients can connect.
    std::optional<int> listen(const std::string& address, int port);
    /// Serves, on threads of its own.
    void start();
    /// Takes nothing new; requests that are here in full are still answered, and then the threads
    /// end. Waits for that. Not from a handler.
    void stop();

    std::size_t connections() const;

  private:
    std::unique_ptr<HttpShared> shared_;
    std::vector<std::unique_ptr<HttpLoop>> loops_;
};

}  // namespace zelvo::serving
