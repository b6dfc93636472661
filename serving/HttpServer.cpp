#include "serving/HttpServer.h"

#include <netdb.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <limits>
#include <thread>

#include "platform/linux/base/FileDescriptor.h"
#include "serving/HttpLoop.h"
#include "serving/HttpShared.h"

namespace zelvo::serving {
namespace {

constexpr int Backlog = 1024;
/// Descriptors for everything but connections: the database, the log, the loops.
constexpr std::size_t OtherDescriptors = 64;

std::size_t descriptorLimit() {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
    ::getrlimit(RLIMIT_NOFILE, &limit);
    return limit.rlim_cur;
}

Metrics& metricsOf(const HttpServer::Options& options, Metrics& own) {
    return options.metrics ? *options.metrics : own;
}

platform::FileDescriptor listenOn(const std::string& address, int port) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICHOST | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    if (::getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found) != 0)
        return {};
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> release(found, &freeaddrinfo);
    platform::FileDescriptor socket(
        ::socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    // Not SO_REUSEPORT, with which a second service would take half of the clients.
    const int on = 1;
    ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (::bind(socket.get(), found->ai_addr, found->ai_addrlen) != 0 ||
        ::listen(socket.get(), Backlog) != 0)
        return {};
    return socket;
}

int portOf(int socket) {
    sockaddr_storage name{};
    socklen_t size = sizeof name;
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&name), &size);
    // The port lies at the same place in both families.
    return ntohs(reinterpret_cast<const sockaddr_in&>(name).sin_port);
}

}  // namespace

HttpShared::HttpShared(HttpServer::Handler itsHandler, HttpServer::Options itsOptions)
    : handler(std::move(itsHandler)),
      options(std::move(itsOptions)),
      connectionsOf(options.connectionsPerClient > 0 ? options.connectionsPerClient
                                                     : std::numeric_limits<std::size_t>::max()),
      requestsOf(options.requestsPerClient),
      accepted(metricsOf(options, ownMetrics)
                   .counter("zelvo_connections_total", "Connections that were accepted.")),
      crowdedOut(metricsOf(options, ownMetrics)
                     .counter("zelvo_connections_refused_total",
                              "Connections of clients that had their share already.")),
      overdue(metricsOf(options, ownMetrics)
                  .counter("zelvo_connections_overdue_total",
                           "Connections that were ended because a deadline had passed.")),
      tooOften(metricsOf(options, ownMetrics)
                   .counter("zelvo_requests_refused_total",
                            "Requests of clients that ask too often.")) {}

HttpServer::HttpServer(Handler handler, Options options) {
    if (!options.refusal)
        options.refusal = [](int status) { return HttpResponse{status, {}, ""}; };
    shared_ = std::make_unique<HttpShared>(std::move(handler), std::move(options));
    const auto& set = shared_->options;
    const auto loops =
        set.loops > 0 ? set.loops : std::max<std::size_t>(1, std::thread::hardware_concurrency());
    const auto limit = descriptorLimit();
    const auto most = limit > 2 * OtherDescriptors ? limit - OtherDescriptors : OtherDescriptors;
    const auto connections = set.connections > 0 ? std::min(set.connections, most) : most;
    for (std::size_t i = 0; i < loops; ++i)
        loops_.push_back(
            std::make_unique<HttpLoop>(*shared_, std::max<std::size_t>(1, connections / loops)));
}

HttpServer::~HttpServer() {
    stop();
}

void HttpServer::setTls(std::shared_ptr<const TlsContext> tls) {
    const std::lock_guard lock(shared_->tlsMutex);
    shared_->currentTls = std::move(tls);
}

std::optional<int> HttpServer::listen(const std::string& address, int port) {
    const auto socket = listenOn(address, port);
    if (!socket)
        return std::nullopt;
    for (auto& loop : loops_)
        if (!loop->listen(socket.get()))
            return std::nullopt;
    return portOf(socket.get());
}

void HttpServer::start() {
    for (auto& loop : loops_)
        loop->start();
}

void HttpServer::stop() {
    for (auto& loop : loops_)
        loop->beginStop();
    for (auto& loop : loops_)
        loop->join();
}

std::size_t HttpServer::connections() const {
    return shared_->connections;
}

}  // namespace zelvo::serving
