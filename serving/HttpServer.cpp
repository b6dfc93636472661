#include "serving/HttpServer.h"

#include <algorithm>
#include <limits>
#include <thread>

#include "serving/HttpLoop.h"
#include "serving/HttpShared.h"
#include "serving/Listening.h"

namespace zelvo::serving {
namespace {

Metrics& metricsOf(const HttpServer::Options& options, Metrics& own) {
    return options.metrics ? *options.metrics : own;
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
    const auto most = connectionLimit();
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
