#pragma once

#include <map>
#include <string>

#include "serving/HttpServer.h"
#include "serving/TlsContext.h"
#include "tests/support/TemporaryFolder.h"

namespace zelvo::test {

/// An HTTPS server on loopback, on a thread of its own. The handlers are set before it starts.
class HttpsPeer {
  public:
    using Respond = serving::HttpServer::Respond;
    using Handler = std::function<void(const serving::HttpRequest&, Respond)>;

    /// With NAME.pem and NAME.key of the folder.
    HttpsPeer(const TemporaryFolder& folder, const std::string& name)
        : server_([this](const auto& request, auto respond) { handle(request, respond); },
                  {.loops = 1}) {
        std::string error;
        server_.setTls(
            serving::TlsContext::read(folder / (name + ".pem"), folder / (name + ".key"), error));
        port_ = server_.listen("127.0.0.1", 0).value_or(0);
    }

    /// By how the path begins.
    void on(const std::string& path, Handler handler) { handlers_[path] = std::move(handler); }
    void start() { server_.start(); }
    std::string url(const std::string& path, const std::string& host = "127.0.0.1") const {
        return "https://" + host + ":" + std::to_string(port_) + path;
    }

  private:
    void handle(const serving::HttpRequest& request, const Respond& respond) {
        for (const auto& [path, handler] : handlers_)
            if (request.path.starts_with(path))
                return handler(request, respond);
        respond({404, {}, ""});
    }

    std::map<std::string, Handler> handlers_;
    serving::HttpServer server_;
    int port_ = 0;
};

}  // namespace zelvo::test
