#include "service/HttpsServer.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <utility>

#include "service/PropertyListWriter.h"
#include "service/TlsStream.h"
#include "service/WorkerPool.h"

namespace zelvo::service {
namespace {

/// Room for the request line and headers besides the body.
constexpr std::size_t HeaderBytes = 64 * 1024;

StatusCode codeOfHttpStatus(int httpStatus) {
    switch (httpStatus) {
        case 404:
            return StatusCode::UnknownPath;
        case 413:
            return StatusCode::BodyTooLong;
        default:
            return httpStatus >= 500 ? StatusCode::InternalError : StatusCode::BadRequest;
    }
}

}  // namespace

HttpsServer::HttpsServer(const TlsContext& tls, SharingEndpoints& endpoints)
    : HttpsServer(tls, endpoints, Limits()) {}

HttpsServer::HttpsServer(const TlsContext& tls, SharingEndpoints& endpoints, Limits limits)
    : tls_(tls),
      endpoints_(endpoints),
      limits_(limits),
      stop_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    new_task_queue = [this] { return new WorkerPool(limits_.workers, limits_.queue); };
    set_socket_options([this](socket_t socket) { prepareListener(socket); });
    set_pre_routing_handler(
        [this](const auto& request, auto& response) { return refuseEarly(request, response); });
    // By this a client behind a second router finds out that it is. Nothing else depends on who
    // asks, and who asked is not kept.
    set_post_routing_handler([](const httplib::Request& request, httplib::Response& response) {
        response.set_header("Client-Address", request.remote_addr);
    });
    Post(".*", [this](const httplib::Request& request, httplib::Response& response,
                      const httplib::ContentReader& read) { handlePost(request, response, read); });
    set_error_handler([](const httplib::Request&, httplib::Response& response) {
        if (response.body.empty())
            respond(response, response.status, refusal(codeOfHttpStatus(response.status)));
    });
    set_exception_handler(
        [](const httplib::Request&, httplib::Response& response, const std::exception_ptr&) {
            respond(response, 500, refusal(StatusCode::InternalError));
        });
}

std::optional<int> HttpsServer::bind(const std::string& address, int port) {
    if (port == 0)
        port = bind_to_any_port(address);
    else if (!bind_to_port(address, port))
        port = -1;
    return port > 0 ? std::optional(port) : std::nullopt;
}

bool HttpsServer::run() {
    listen_after_bind();
    return stopped_;
}

void HttpsServer::stop() {
    stopped_ = true;
    eventfd_write(stop_.get(), 1);
    // Ends accept() whether the library has come to it or not; its own stop() is lost before.
    shutdown(listener_.get(), SHUT_RDWR);
}

void HttpsServer::respond(httplib::Response& response, int httpStatus, const Reply& reply) {
    response.status = httpStatus;
    response.set_content(PropertyListWriter::write(reply), "text/xml");
}

bool HttpsServer::process_and_close_socket(socket_t socket) {
    try {
        serve(platform::FileDescriptor(socket));
    } catch (const std::exception& trouble) {
        // One connection's trouble, out of memory included, ends that connection alone.
        std::fprintf(stderr, "zelvo-service: %s\n", trouble.what());
    }
    return true;
}

void HttpsServer::serve(platform::FileDescriptor socket) {
    TlsStream stream(tls_.get(), std::move(socket),
                     {.deadline = std::chrono::steady_clock::now() + limits_.connectionTime,
                      .bytes = HeaderBytes + limits_.bodyLength,
                      .stop = stop_.get()});
    if (!stream.handshake())
        return;
    bool closed = false;
    // Ranges would let a short request ask for the same bytes of a reply thousands of times.
    process_request(stream, true, closed,
                    [](httplib::Request& request) { request.ranges.clear(); });
    stream.finish();
}

void HttpsServer::prepareListener(int socket) {
    // Not the library's SO_REUSEPORT, with which a second service would take half of the clients.
    int on = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    // A descriptor of our own, as the library closes its one at a moment that stop() cannot know.
    listener_ = platform::FileDescriptor(fcntl(socket, F_DUPFD_CLOEXEC, 0));
}

httplib::Server::HandlerResponse HttpsServer::refuseEarly(const httplib::Request& request,
                                                          httplib::Response& response) const {
    auto refuse = [&](int httpStatus, StatusCode code) {
        respond(response, httpStatus, refusal(code));
        return HandlerResponse::Handled;
    };
    if (!SharingEndpoints::has(request.path))
        return refuse(404, StatusCode::UnknownPath);
    if (request.method != "POST") {
        response.set_header("Allow", "POST");
        return refuse(405, StatusCode::MethodNotAllowed);
    }
    if (!request.get_header_value("Content-Type").starts_with("application/x-www-form-urlencoded"))
        return refuse(415, StatusCode::NotAForm);
    if (!request.has_header("Content-Length") && !request.has_header("Transfer-Encoding"))
        return refuse(411, StatusCode::BadRequest);
    if (request.get_header_value<std::uint64_t>("Content-Length") > limits_.bodyLength)
        return refuse(413, StatusCode::BodyTooLong);
    return HandlerResponse::Unhandled;
}

void HttpsServer::handlePost(const httplib::Request& request, httplib::Response& response,
                             const httplib::ContentReader& read) {
    // Read here and not by the library, which takes forms of at most 8 KiB and "+" for a space.
    std::string body;
    bool tooLong = false;
    bool whole = read([&](const char* data, std::size_t size) {
        tooLong = body.size() + size > limits_.bodyLength;
        if (!tooLong)
            body.append(data, size);
        return !tooLong;
    });
    if (tooLong)
        respond(response, 413, refusal(StatusCode::BodyTooLong));
    else if (!whole)
        respond(response, 400, refusal(StatusCode::BadRequest));
    else
        respond(response, 200, endpoints_.answer(request.path, body));
}

}  // namespace zelvo::service
