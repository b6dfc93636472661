#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "service/SharingEndpoints.h"
#include "service/WebPage.h"
#include "serving/Budgets.h"
#include "serving/HttpServer.h"
#include "serving/Metrics.h"

namespace zelvo::service {

/// The endpoints over HTTP: forms in, property lists out, the owner's secret in a cookie. Any
/// thread.
class SharingHandler {
  public:
    struct Options {
        serving::Allowances::Rate createsPerClient = {};
        /// Writes a line with the client and the link of each request.
        bool logsRequests = false;
        serving::Metrics* metrics = nullptr;
        /// What browsers are shown at a link; null for nothing.
        const WebPage* page = nullptr;
    };

    SharingHandler(SharingEndpoints& endpoints, const Options& options);

    void handle(const serving::HttpRequest& request, serving::HttpServer::Respond respond);
    /// What is refused before an endpoint hears of it, as a property list.
    static serving::HttpResponse refuse(int httpStatus);

  private:
    serving::HttpResponse refuseEarly(const serving::HttpRequest& request) const;
    void log(const serving::HttpRequest& request) const;
    void count(std::string_view endpoint, const Reply& reply);

    SharingEndpoints& endpoints_;
    const bool logsRequests_;
    serving::Allowances creates_;
    serving::Metrics* const metrics_;
    const WebPage* const page_;
};

}  // namespace zelvo::service
