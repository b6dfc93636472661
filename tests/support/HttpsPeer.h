#pragma once

#include <string>
#include <thread>

#include "tests/support/TemporaryFolder.h"

#include <httplib.h>

namespace zelvo::test {

/// An HTTPS server on loopback, on a thread of its own. The handlers are set before it starts.
class HttpsPeer {
  public:
    /// With NAME.pem and NAME.key of the folder.
    HttpsPeer(const TemporaryFolder& folder, const std::string& name)
        : server((folder / (name + ".pem")).c_str(), (folder / (name + ".key")).c_str()),
          port_(server.bind_to_any_port("127.0.0.1")) {}
    ~HttpsPeer() {
        server.stop();
        if (thread_.joinable())
            thread_.join();
    }

    void start() {
        thread_ = std::thread([this] { server.listen_after_bind(); });
        while (!server.is_running())
            std::this_thread::yield();
    }
    std::string url(const std::string& path, const std::string& host = "127.0.0.1") const {
        return "https://" + host + ":" + std::to_string(port_) + path;
    }

    httplib::SSLServer server;

  private:
    int port_;
    std::thread thread_;
};

}  // namespace zelvo::test
