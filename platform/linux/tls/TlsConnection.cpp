#include "platform/linux/tls/TlsConnection.h"

#include <curl/curl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace zelvo::platform {

namespace {

// A network that died is noticed within 30 s, and sooner where there is something on the way. Many
// hosts keep a silent connection to one relay, which is not to be asked all the time.
constexpr int SilenceBeforeAsking = 15;
constexpr int SecondsBetweenQuestions = 5;
constexpr int Questions = 3;
constexpr int MillisecondsUnacknowledged = 15'000;

}  // namespace

TlsConnection::TlsConnection(void* multi, void* handle) : multi_(multi), handle_(handle) {
    curl_socket_t socket = CURL_SOCKET_BAD;
    curl_easy_getinfo(handle_, CURLINFO_ACTIVESOCKET, &socket);
    descriptor_ = socket;
    const auto set = [this](int level, int option, int value) {
        ::setsockopt(descriptor_, level, option, &value, sizeof value);
    };
    set(IPPROTO_TCP, TCP_NODELAY, 1);
    set(SOL_SOCKET, SO_KEEPALIVE, 1);
    set(IPPROTO_TCP, TCP_KEEPIDLE, SilenceBeforeAsking);
    set(IPPROTO_TCP, TCP_KEEPINTVL, SecondsBetweenQuestions);
    set(IPPROTO_TCP, TCP_KEEPCNT, Questions);
    set(IPPROTO_TCP, TCP_USER_TIMEOUT, MillisecondsUnacknowledged);
}

TlsConnection::~TlsConnection() {
    curl_multi_remove_handle(multi_, handle_);
    curl_easy_cleanup(handle_);
}

std::optional<std::size_t> TlsConnection::read(std::span<char> to) {
    std::size_t count = 0;
    const auto code = curl_easy_recv(handle_, to.data(), to.size(), &count);
    if (code == CURLE_AGAIN)
        return std::nullopt;
    return code == CURLE_OK ? count : 0;
}

std::optional<std::size_t> TlsConnection::write(std::string_view bytes) {
    std::size_t count = 0;
    const auto code = curl_easy_send(handle_, bytes.data(), bytes.size(), &count);
    if (code == CURLE_AGAIN)
        return 0;
    return code == CURLE_OK ? std::optional(count) : std::nullopt;
}

void TlsConnection::sayEnd() const {
    ::shutdown(descriptor_, SHUT_WR);
}

}  // namespace zelvo::platform
