#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include "serving/HttpServer.h"
#include "serving/Metrics.h"
#include "serving/TlsContext.h"

namespace zelvo::serving {

/// What the loops of one server have in common.
struct HttpShared {
    HttpShared(HttpServer::Handler itsHandler, HttpServer::Options itsOptions);

    std::shared_ptr<const TlsContext> tls() const {
        const std::lock_guard lock(tlsMutex);
        return currentTls;
    }

    const HttpServer::Handler handler;
    const HttpServer::Options options;
    Shares connectionsOf;
    Allowances requestsOf;
    std::atomic<std::size_t> connections = 0;

    Metrics ownMetrics;  ///< where nobody wants to know
    Metrics::Counter& accepted;
    Metrics::Counter& crowdedOut;
    Metrics::Counter& overdue;
    Metrics::Counter& tooOften;

    mutable std::mutex tlsMutex;
    std::shared_ptr<const TlsContext> currentTls;
};

}  // namespace zelvo::serving
