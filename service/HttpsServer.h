#pragma once

#include <httplib.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "platform/linux/base/FileDescriptor.h"
#include "service/Reply.h"
#include "service/SharingEndpoints.h"
#include "service/TlsContext.h"

namespace zelvo::service {

/// Serves the endpoints over HTTPS. Each connection carries one request; every reply, refusals of
/// the HTTP layer included, is a property list.
class HttpsServer : private httplib::Server {
  public:
    struct Limits {
        std::size_t workers = 64;                         ///< connections served side by side
        std::size_t queue = 256;                          ///< connections that wait for a worker
        std::chrono::milliseconds connectionTime{30000};  ///< handshake to end of reply
        /// Bytes. A client may have kept a link as long as its replies may be, 1 MiB, and escapes
        /// each byte of it.
        std::size_t bodyLength = 4 * 1024 * 1024;
    };

    HttpsServer(const TlsContext& tls, SharingEndpoints& endpoints, Limits limits);
    HttpsServer(const TlsContext& tls, SharingEndpoints& endpoints);
    ~HttpsServer() override = default;

    /// Listens on the address; port 0 picks a free one. The port, or nothing when it is taken or
    /// not ours to use. From then on clients can connect.
    std::optional<int> bind(const std::string& address, int port);
    /// Serves until stop(). False when accepting connections failed before that.
    bool run();
    /// Ends run(), also one that comes after it; not before bind(). Open connections are not
    /// waited for, but requests that are here in full are still answered. Any thread.
    void stop();

  private:
    static void respond(httplib::Response& response, int httpStatus, const Reply& reply);

    bool process_and_close_socket(socket_t socket) override;
    void serve(platform::FileDescriptor socket);
    void prepareListener(int socket);
    HandlerResponse refuseEarly(const httplib::Request& request, httplib::Response& response) const;
    void handlePost(const httplib::Request& request, httplib::Response& response,
                    const httplib::ContentReader& read);

    const TlsContext& tls_;
    SharingEndpoints& endpoints_;
    const Limits limits_;
    platform::FileDescriptor stop_;
    platform::FileDescriptor listener_;
    std::atomic<bool> stopped_ = false;
};

}  // namespace zelvo::service
