#include "serving/OperatorServer.h"

#include <charconv>
#include <utility>

#include "serving/Metrics.h"

namespace zelvo::serving {
namespace {

HttpResponse textResponse(int status, std::string text) {
    return {status, {{"Content-Type", "text/plain; version=0.0.4"}}, std::move(text)};
}

}  // namespace

OperatorServer::OperatorServer(const Metrics& metrics, std::function<bool()> isWell)
    : server_(
          [&metrics, isWell = std::move(isWell)](const HttpRequest& request,
                                                 const HttpServer::Respond& respond) {
              if (request.path == "/metrics")
                  return respond(textResponse(200, metrics.text()));
              if (request.path != "/health")
                  return respond(textResponse(404, "There are /health and /metrics.\n"));
              const bool well = isWell();
              respond(textResponse(well ? 200 : 503, well ? "well\n" : "the database fails\n"));
          },
          {.loops = 1, .bodyLength = 1024, .connections = 64}) {}

std::optional<int> OperatorServer::start(const std::string& place) {
    const auto colon = place.rfind(':');
    int port = -1;
    if (colon != place.npos)
        std::from_chars(place.data() + colon + 1, place.data() + place.size(), port);
    if (port < 0 || port > 65535)
        return std::nullopt;
    auto address = place.substr(0, colon);
    if (address.starts_with('[') && address.ends_with(']'))
        address = address.substr(1, address.size() - 2);
    const auto bound = server_.listen(address, port);
    if (bound)
        server_.start();
    return bound;
}

}  // namespace zelvo::serving
