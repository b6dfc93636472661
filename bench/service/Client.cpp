#include "bench/service/Client.h"

#include <arpa/inet.h>
#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/bufferevent_ssl.h>
#include <event2/event.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <charconv>
#include <utility>

namespace zelvo::bench {
namespace {

/// 127.1.0.1 and on, four connections from each, which leaves every budget alone.
std::uint32_t addressOf(std::uint32_t number) {
    return 0x7f010001U + number / 4;
}

std::size_t lengthOf(std::string_view head) {
    constexpr std::string_view name = "Content-Length: ";
    std::size_t length = 0;
    const auto at = head.find(name);
    if (at != head.npos)
        std::from_chars(head.data() + at + name.size(), head.data() + head.size(), length);
    return length;
}

}  // namespace

int Client::connectFrom(std::uint32_t number, int port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const int on = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    ::setsockopt(socket, IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, &on, sizeof on);
    sockaddr_in here{};
    here.sin_family = AF_INET;
    here.sin_addr.s_addr = htonl(addressOf(number));
    ::bind(socket, reinterpret_cast<sockaddr*>(&here), sizeof here);
    sockaddr_in there{};
    there.sin_family = AF_INET;
    there.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    there.sin_port = htons(static_cast<std::uint16_t>(port));
    ::connect(socket, reinterpret_cast<sockaddr*>(&there), sizeof there);
    return socket;
}

std::string Client::post(std::string_view endpoint, std::string_view body,
                         std::string_view secret) {
    std::string request = "POST /app/4.8.1/sharing/";
    request.append(endpoint).append(" HTTP/1.1\r\nHost: x\r\nContent-Length: ");
    request += std::to_string(body.size());
    request += "\r\nContent-Type: application/x-www-form-urlencoded\r\n";
    if (!secret.empty())
        request.append("Cookie: owner=").append(secret).append("\r\n");
    return request.append("\r\n").append(body);
}

void Client::send(const std::string& request, Answered answered) {
    answered_ = std::move(answered);
    begun_ = Clock::now();
    if (!transport_)
        connect();
    bufferevent_write(transport_, request.data(), request.size());
}

void Client::connect() {
    auto* session = SSL_new(place_.tls);
    if (session_)
        SSL_set_session(session, session_);
    transport_ =
        bufferevent_openssl_socket_new(place_.base, connectFrom(number_, place_.port), session,
                                       BUFFEREVENT_SSL_CONNECTING, BEV_OPT_CLOSE_ON_FREE);
    bufferevent_openssl_set_allow_dirty_shutdown(transport_, 1);
    bufferevent_setcb(
        transport_, [](bufferevent*, void* self) { static_cast<Client*>(self)->read(); }, nullptr,
        [](bufferevent*, short what, void* self) {
            if ((what & BEV_EVENT_CONNECTED) == 0)
                static_cast<Client*>(self)->finish({});
        },
        this);
    bufferevent_enable(transport_, EV_READ | EV_WRITE);
}

void Client::read() {
    auto* input = bufferevent_get_input(transport_);
    const std::string_view bytes(reinterpret_cast<const char*>(evbuffer_pullup(input, -1)),
                                 evbuffer_get_length(input));
    const auto end = bytes.find("\r\n\r\n");
    if (end == bytes.npos)
        return;
    Answer answer;
    answer.head = bytes.substr(0, end + 2);
    const auto length = lengthOf(answer.head);
    if (bytes.size() < end + 4 + length)
        return;
    answer.body = bytes.substr(end + 4, length);
    std::from_chars(bytes.data() + 9, bytes.data() + 12, answer.status);
    const auto size = end + 4 + length;
    const std::string kept(bytes.substr(0, size));
    answer.head = std::string_view(kept).substr(0, end + 2);
    answer.body = std::string_view(kept).substr(end + 4);
    evbuffer_drain(input, size);
    if (answer.head.find("Connection: close") != std::string_view::npos) {
        auto answered = std::exchange(answered_, nullptr);
        hangUp();
        answered_ = std::move(answered);
    }
    finish(answer);
}

void Client::finish(const Answer& answer) {
    auto whole = answer;
    whole.took = Clock::now() - begun_;
    if (answer.status == 0)
        hangUp();
    if (auto answered = std::exchange(answered_, nullptr))
        answered(whole);
}

Client::~Client() {
    hangUp();
    SSL_SESSION_free(session_);
}

void Client::keepSession() {
    if (transport_ && !session_)
        session_ = SSL_get1_session(bufferevent_openssl_get_ssl(transport_));
}

bool Client::hasKept() const {
    return !session_ || !transport_ ||
           SSL_session_reused(bufferevent_openssl_get_ssl(transport_)) == 1;
}

void Client::hangUp() {
    if (!transport_)
        return;
    // The library takes no session up again whose connection broke off.
    SSL_set_shutdown(bufferevent_openssl_get_ssl(transport_), SSL_SENT_SHUTDOWN);
    bufferevent_free(std::exchange(transport_, nullptr));
}

}  // namespace zelvo::bench
