#include "service/SharingHandler.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <utility>

#include "platform/linux/base/OneLine.h"
#include "service/Names.h"
#include "service/PropertyListWriter.h"

namespace zelvo::service {
namespace {

using serving::HttpRequest;
using serving::HttpResponse;

constexpr std::string_view CookieName = "owner=";
/// As long as clients keep one at most, and much longer than a link is known.
constexpr const char* CookieAttributes =
    "; Path=/app/4.8.1/sharing/; Max-Age=34560000; Secure; HttpOnly; SameSite=Strict";

/// The secret that the request shows; of several the first that can be one.
std::string secretOf(const HttpRequest& request) {
    for (auto line : request.headers("Cookie"))
        while (!line.empty()) {
            const auto end = std::min(line.find(';'), line.size());
            auto cookie = line.substr(0, end);
            cookie.remove_prefix(std::min(cookie.find_first_not_of(' '), cookie.size()));
            if (cookie.starts_with(CookieName) && bytesOfName(cookie.substr(CookieName.size())))
                return std::string(cookie.substr(CookieName.size()));
            line.remove_prefix(std::min(end + 1, line.size()));
        }
    return {};
}

HttpResponse responseOf(int status, const Reply& reply) {
    HttpResponse response;
    response.status = status;
    response.headers = {{"Content-Type", "text/xml"}, {"Cache-Control", "no-store"}};
    response.body = PropertyListWriter::write(reply);
    return response;
}

/// Refusals by the endpoints are replies like others; what may pass by itself, a client that looks
/// at the status alone is to know, too.
int httpStatusOf(const Reply& reply) {
    switch (static_cast<StatusCode>(std::get<std::int64_t>(reply.find("StatusCode")->second))) {
        case StatusCode::StoreUnavailable:
            return 503;
        case StatusCode::InternalError:
            return 500;
        case StatusCode::TooManyRequests:
            return 429;
        default:
            return 200;
    }
}

/// What a request takes of its client's budget of links: by what it may leave on the disk. The form
/// of an ordinary host has some 1,000 bytes, and its updates are free.
double costOf(std::string_view endpoint, std::size_t length) {
    constexpr std::size_t part = 4096;
    // A part that is begun costs nothing.
    const std::size_t whole = length / part;
    const auto parts = static_cast<double>(whole);
    if (endpoint == "create.php" || endpoint == "relay.php")
        return 1 + parts;
    return endpoint == "update.php" ? parts : 0;
}

StatusCode codeOf(int httpStatus) {
    switch (httpStatus) {
        case 404:
            return StatusCode::UnknownPath;
        case 405:
            return StatusCode::MethodNotAllowed;
        case 415:
            return StatusCode::NotAForm;
        case 429:
            return StatusCode::TooManyRequests;
        default:
            return httpStatus >= 500 ? StatusCode::InternalError : StatusCode::BadRequest;
    }
}

}  // namespace

SharingHandler::SharingHandler(SharingEndpoints& endpoints, const Options& options)
    : endpoints_(endpoints),
      logsRequests_(options.logsRequests),
      creates_(options.createsPerClient),
      metrics_(options.metrics),
      page_(options.page) {}

HttpResponse SharingHandler::refuse(int httpStatus) {
    auto response = responseOf(httpStatus, refusal(codeOf(httpStatus)));
    if (httpStatus == 405)
        response.headers.emplace_back("Allow", "POST");
    if (httpStatus == 429)
        response.headers.emplace_back("Retry-After", "60");
    return response;
}

HttpResponse SharingHandler::refuseEarly(const HttpRequest& request) const {
    if (SharingEndpoints::nameOf(request.path).empty())
        return refuse(404);
    if (request.method != "POST")
        return refuse(405);
    if (!request.header("Content-Type").starts_with("application/x-www-form-urlencoded"))
        return refuse(415);
    if (request.header("Content-Length").empty() && request.header("Transfer-Encoding").empty())
        return refuse(411);
    return {};
}

void SharingHandler::handle(const HttpRequest& request, serving::HttpServer::Respond respond) {
    if (page_ && request.method == "GET" && WebPage::isAt(request.path)) {
        if (metrics_)
            ++metrics_->counter("zelvo_service_pages_total", "Times that the page was shown.");
        return respond(page_->answer(request));
    }
    const auto endpoint = SharingEndpoints::nameOf(request.path);
    // By this a client behind a second router finds out that it is.
    const auto client = request.client.text();
    const auto answer = [respond = std::move(respond), client](HttpResponse response) {
        response.headers.emplace_back("Client-Address", client);
        respond(std::move(response));
    };
    if (logsRequests_)
        log(request);
    if (auto refused = refuseEarly(request); !refused.body.empty())
        return answer(std::move(refused));
    const auto cost = costOf(endpoint, request.body.size());
    if (cost > 0 &&
        !creates_.take(request.client.budgetKey(), std::chrono::steady_clock::now(), cost)) {
        count(endpoint, refusal(StatusCode::TooManyRequests));
        return answer(refuse(429));
    }
    const SharingEndpoints::Caller caller{secretOf(request), client};
    endpoints_.answer(request.path, request.body, caller,
                      [this, endpoint, answer](const SharingEndpoints::Answer& answered) {
                          count(endpoint, answered.reply);
                          auto response = responseOf(httpStatusOf(answered.reply), answered.reply);
                          if (!answered.secret.empty())
                              response.headers.emplace_back(
                                  "Set-Cookie",
                                  std::string(CookieName) + answered.secret + CookieAttributes);
                          answer(std::move(response));
                      });
}

void SharingHandler::log(const HttpRequest& request) const {
    constexpr std::size_t most = 200;
    const auto link = request.body.find("ink=");
    const auto named =
        link == request.body.npos ? std::string_view() : request.body.substr(link + 4, most);
    std::fprintf(stderr, "zelvo-service: %s %s %s\n", request.client.text().c_str(),
                 platform::oneLine(std::string(request.path.substr(0, most))).c_str(),
                 platform::oneLine(std::string(named.substr(0, named.find('&')))).c_str());
}

void SharingHandler::count(std::string_view endpoint, const Reply& reply) {
    if (!metrics_)
        return;
    const auto status = std::get<std::int64_t>(reply.find("StatusCode")->second);
    ++metrics_->counter(
        "zelvo_service_replies_total", "Replies by endpoint and StatusCode.",
        "endpoint=\"" + std::string(endpoint) + "\",status=\"" + std::to_string(status) + "\"");
}

}  // namespace zelvo::service
