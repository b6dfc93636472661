#include "service/TlsStream.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <openssl/err.h>

#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <utility>

namespace zelvo::service {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// What a client may go on sending after its reply, and for how long, before it is cut off.
constexpr milliseconds LingerTime{1000};
constexpr std::size_t LingerBytes = 8 * 1024 * 1024;

}  // namespace

TlsStream::TlsStream(SSL_CTX* context, platform::FileDescriptor socket, Bounds bounds)
    : socket_(std::move(socket)), bounds_(bounds), ssl_(SSL_new(context)) {
    int on = 1;
    setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    fcntl(socket_.get(), F_SETFL, fcntl(socket_.get(), F_GETFL) | O_NONBLOCK);
    if (!ssl_ || SSL_set_fd(ssl_.get(), socket_.get()) != 1)
        broken_ = true;
}

bool TlsStream::handshake() {
    return perform([this] { return SSL_accept(ssl_.get()); }) == 1;
}

void TlsStream::finish() {
    if (broken_)
        return;
    ERR_clear_error();
    SSL_shutdown(ssl_.get());
    shutdown(socket_.get(), SHUT_WR);
    // Closing with unread bytes resets the connection, and the client would lose the reply.
    bounds_.deadline = std::min(bounds_.deadline, steady_clock::now() + LingerTime);
    std::array<char, 16384> unread;
    for (std::size_t total = 0; total < LingerBytes;) {
        auto got = recv(socket_.get(), unread.data(), unread.size(), 0);
        if (got > 0)
            total += static_cast<std::size_t>(got);
        else if (got == 0 || (errno != EAGAIN && errno != EINTR) || !waitFor(POLLIN))
            return;
    }
}

ssize_t TlsStream::read(char* to, size_t size) {
    auto most = std::min({size, bounds_.bytes, size_t{INT_MAX}});
    if (most == 0)
        return -1;
    int got = perform([&] { return SSL_read(ssl_.get(), to, static_cast<int>(most)); });
    if (got > 0)
        bounds_.bytes -= static_cast<std::size_t>(got);
    return got;
}

ssize_t TlsStream::write(const char* from, size_t size) {
    if (size == 0)
        return 0;
    auto most = static_cast<int>(std::min(size, size_t{INT_MAX}));
    return perform([&] { return SSL_write(ssl_.get(), from, most); });
}

void TlsStream::get_remote_ip_and_port(std::string& ip, int& port) const {
    ip.clear();
    port = 0;
    sockaddr_storage peer{};
    socklen_t size = sizeof peer;
    std::array<char, NI_MAXHOST> text{};
    if (getpeername(socket_.get(), reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
        getnameinfo(reinterpret_cast<sockaddr*>(&peer), size, text.data(), text.size(), nullptr, 0,
                    NI_NUMERICHOST) == 0)
        ip = text.data();
}

void TlsStream::get_local_ip_and_port(std::string& ip, int& port) const {
    ip.clear();
    port = 0;
}

/// Repeats the operation until it has a result: above 0 its own, 0 for the end of what the client
/// sends, -1 for a failure, the deadline or the stop.
template <typename Operation>
int TlsStream::perform(Operation operation) {
    while (!broken_) {
        ERR_clear_error();
        int result = operation();
        if (result > 0)
            return result;
        switch (SSL_get_error(ssl_.get(), result)) {
            case SSL_ERROR_WANT_READ:
                if (!waitFor(POLLIN))
                    return -1;
                break;
            case SSL_ERROR_WANT_WRITE:
                if (!waitFor(POLLOUT))
                    return -1;
                break;
            case SSL_ERROR_ZERO_RETURN:
                return 0;
            default:
                broken_ = true;
        }
    }
    return -1;
}

bool TlsStream::waitFor(short events) {
    std::array<pollfd, 2> waits{pollfd{socket_.get(), events, 0}, pollfd{bounds_.stop, POLLIN, 0}};
    for (;;) {
        auto left = std::chrono::ceil<milliseconds>(bounds_.deadline - steady_clock::now());
        if (left <= milliseconds(0))
            return false;
        int ready = poll(waits.data(), waits.size(), static_cast<int>(left.count()));
        if (ready < 0 && errno != EINTR)
            return false;
        if (ready > 0)
            return waits[1].revents == 0;
    }
}

}  // namespace zelvo::service
