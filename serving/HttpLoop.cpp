#include "serving/HttpLoop.h"

#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <event2/http.h>
#include <event2/keyvalq_struct.h>
#include <event2/listener.h>
#include <fcntl.h>
#include <strings.h>

#include <algorithm>

#include "serving/HttpShared.h"
#include "serving/TlsConnection.h"

namespace zelvo::serving {
namespace {

using namespace std::chrono_literals;

/// For what is answered last to leave the socket, and for descriptors to become free.
constexpr auto AMoment = 100ms;
constexpr int AcceptedInRound = 16;
/// The library's own time, which with a TLS session never ends before ours.
constexpr int LibrarySeconds = 75;
/// Of what TLS sends at once.
constexpr std::size_t RecordLength = 16384;

timeval asTimeval(std::chrono::milliseconds span) {
    return {static_cast<time_t>(span.count() / 1000),
            static_cast<suseconds_t>(span.count() % 1000 * 1000)};
}

const char* methodName(evhttp_cmd_type type) {
    switch (type) {
        case EVHTTP_REQ_GET:
            return "GET";
        case EVHTTP_REQ_POST:
            return "POST";
        case EVHTTP_REQ_HEAD:
            return "HEAD";
        default:
            return "OTHER";
    }
}

}  // namespace

HttpLoop::HttpLoop(HttpShared& shared, std::size_t most)
    : shared_(shared), most_(most), plain_(most) {
    auto* base = loop_.base();
    const auto& options = shared.options;
    if (options.bytesPerSecond > 0) {
        const auto share = std::max<std::size_t>(options.bytesPerSecond * Turn / 1s, 1);
        const auto length = asTimeval(Turn);
        auto* config =
            ev_token_bucket_cfg_new(share, share, EV_RATE_LIMIT_MAX, EV_RATE_LIMIT_MAX, &length);
        group_.reset(bufferevent_rate_limit_group_new(base, config));
        ev_token_bucket_cfg_free(config);
    }
    http_.reset(evhttp_new(base));
    auto* http = http_.get();
    evhttp_set_max_headers_size(http, static_cast<ev_ssize_t>(options.headLength));
    evhttp_set_max_body_size(http, static_cast<ev_ssize_t>(options.bodyLength));
    evhttp_set_timeout(http, LibrarySeconds);
    // What is not allowed is refused by the handler, in its own words; of what is no method at all
    // the library makes a number that its type does not have.
    evhttp_set_allowed_methods(http, EVHTTP_REQ_GET | EVHTTP_REQ_POST | EVHTTP_REQ_HEAD |
                                         EVHTTP_REQ_PUT | EVHTTP_REQ_DELETE | EVHTTP_REQ_OPTIONS |
                                         EVHTTP_REQ_PATCH);
    evhttp_set_flags(http, EVHTTP_SERVER_LINGERING_CLOSE);
    evhttp_set_bevcb(
        http,
        [](event_base*, void* self) {
            auto& loop = *static_cast<HttpLoop*>(self);
            ++loop.shared_.accepted;
            loop.pauseAfterSome();
            auto* transport = loop.shared_.tls() ? TlsConnection::make(loop) : loop.makePlain();
            if (transport && loop.group_)
                bufferevent_add_to_rate_limit_group(transport, loop.group_.get());
            return transport;
        },
        this);
    evhttp_set_gencb(
        http,
        [](evhttp_request* request, void* self) { static_cast<HttpLoop*>(self)->handle(request); },
        this);
}

HttpLoop::~HttpLoop() {
    // Connections end with the server, the last of each in the loop's next turn, and tell this
    // loop.
    http_.reset();
    event_base_loop(loop_.base(), EVLOOP_NONBLOCK);
}

bool HttpLoop::listen(int socket) {
    const int own = ::fcntl(socket, F_DUPFD_CLOEXEC, 0);
    // A backlog of 0 leaves the socket's own.
    listener_ = evconnlistener_new(loop_.base(), nullptr, nullptr,
                                   LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC, 0, own);
    if (!listener_ || !evhttp_bind_listener(http_.get(), listener_))
        return false;
    evconnlistener_set_error_cb(listener_, [](evconnlistener* listener, void*) {
        // Out of descriptors, most likely; trying again at once would only burn a core.
        const auto pause = asTimeval(AMoment);
        evconnlistener_disable(listener);
        event_base_once(
            evconnlistener_get_base(listener), -1, EV_TIMEOUT,
            [](int, short, void* it) { evconnlistener_enable(static_cast<evconnlistener*>(it)); },
            listener, &pause);
    });
    return true;
}

void HttpLoop::start() {
    // Without TLS no deadline but the library's ends a connection that says nothing.
    if (!shared_.tls()) {
        const auto idle = asTimeval(shared_.options.headTime);
        evhttp_set_timeout_tv(http_.get(), &idle);
    }
    loop_.start();
}

void HttpLoop::beginStop() {
    loop_.post([this] {
        stopping_ = true;
        accept(false);
        endOnceAnswered();
    });
}

void HttpLoop::endOnceAnswered() {
    if (!stopping_ || unanswered_ > 0 || isEnding_)
        return;
    isEnding_ = true;
    const auto pause = asTimeval(AMoment);
    event_base_once(
        loop_.base(), -1, EV_TIMEOUT,
        [](int, short, void* self) { static_cast<HttpLoop*>(self)->endIfAnswered(); }, this,
        &pause);
}

/// An answer that is still to come needs its request, which goes with the loop.
void HttpLoop::endIfAnswered() {
    isEnding_ = false;
    if (unanswered_ == 0)
        loop_.endAfter(0ms);
}

bufferevent* HttpLoop::makePlain() {
    auto* transport = bufferevent_socket_new(loop_.base(), -1, BEV_OPT_CLOSE_ON_FREE);
    if (!transport)
        return nullptr;
    // The library gives it its socket only after this, and reads none before the loop's next turn.
    constexpr timeval atOnce{0, 0};
    if (accepted_.empty())
        event_base_once(
            loop_.base(), -1, EV_TIMEOUT,
            [](int, short, void* self) { static_cast<HttpLoop*>(self)->welcomePlain(); }, this,
            &atOnce);
    bufferevent_incref(transport);
    accepted_.push_back(transport);
    return transport;
}

void HttpLoop::welcomePlain() {
    for (auto* transport : accepted_) {
        plain_.come(bufferevent_getfd(transport));
        bufferevent_decref(transport);
    }
    accepted_.clear();
}

void HttpLoop::connectionBegins() {
    ++shared_.connections;
    if (++connections_ >= most_)
        accept(false);
}

void HttpLoop::connectionEnds() {
    --shared_.connections;
    if (connections_-- == most_)
        accept(true);
}

/// The library accepts all that wait at once, for which everybody else would have to wait.
void HttpLoop::pauseAfterSome() {
    if (++acceptedInRound_ < AcceptedInRound)
        return;
    constexpr timeval atOnce{0, 0};
    accept(false);
    event_base_once(
        loop_.base(), -1, EV_TIMEOUT,
        [](int, short, void* self) {
            auto& loop = *static_cast<HttpLoop*>(self);
            loop.acceptedInRound_ = 0;
            loop.accept(true);
        },
        this, &atOnce);
}

void HttpLoop::accept(bool isOn) {
    if (!listener_ || !http_)
        return;
    if (isOn && !stopping_ && connections_ < most_)
        evconnlistener_enable(listener_);
    else
        evconnlistener_disable(listener_);
}

void HttpLoop::handle(evhttp_request* request) {
    auto* link = evhttp_request_get_connection(request);
    auto* transport = evhttp_connection_get_bufferevent(link);
    auto* connection = TlsConnection::of(transport);
    if (!connection)
        plain_.ask(bufferevent_getfd(transport));
    ++unanswered_;
    const bool isCharged = connection != nullptr;
    const bool mayAsk = !isCharged || connection->requestIsHere();
    if (stopping_)
        return send(request, shared_.options.refusal(503));
    char* address = nullptr;
    std::uint16_t port = 0;
    evhttp_connection_get_peer(link, &address, &port);
    HttpRequest here;
    here.port = port;
    here.client = connection
                      ? connection->client()
                      : ClientAddress::parse(address ? address : "").value_or(ClientAddress());
    if (!mayAsk || (!isCharged && !shared_.requestsOf.take(here.client.budgetKey()))) {
        ++shared_.tooOften;
        return send(request, shared_.options.refusal(429));
    }
    const std::string_view uri = evhttp_request_get_uri(request);
    const auto mark = uri.find('?');
    here.path = uri.substr(0, mark);
    here.query = mark == uri.npos ? std::string_view() : uri.substr(mark + 1);
    here.method = methodName(evhttp_request_get_command(request));
    auto* input = evhttp_request_get_input_buffer(request);
    if (const auto size = evbuffer_get_length(input); size > 0)
        here.body = {reinterpret_cast<const char*>(evbuffer_pullup(input, -1)), size};
    const auto* fields = evhttp_request_get_input_headers(request);
    here.header = [fields](const char* name) -> std::string_view {
        const char* value = evhttp_find_header(fields, name);
        return value ? value : "";
    };
    here.headers = [fields](std::string_view name) {
        std::vector<std::string_view> values;
        for (const auto* field = fields->tqh_first; field; field = field->next.tqe_next)
            if (strcasecmp(field->key, std::string(name).c_str()) == 0)
                values.emplace_back(field->value);
        return values;
    };
    shared_.handler(here, [this, request](HttpResponse response) {
        if (loop_.isHere())
            return send(request, std::move(response));
        loop_.post([this, request, response = std::move(response)]() mutable {
            send(request, std::move(response));
        });
    });
}

void HttpLoop::send(evhttp_request* request, HttpResponse response) {
    --unanswered_;
    auto* fields = evhttp_request_get_output_headers(request);
    for (const auto& [name, value] : response.headers)
        evhttp_add_header(fields, name.c_str(), value.c_str());
    // Who asks too often pays for the next request with a handshake.
    if (stopping_ || response.status == 429)
        evhttp_add_header(fields, "Connection", "close");
    auto* link = evhttp_request_get_connection(request);
    auto* connection = link ? TlsConnection::of(evhttp_connection_get_bufferevent(link)) : nullptr;
    if (connection) {
        connection->replyBegins();
        evhttp_request_set_on_complete_cb(
            request,
            [](evhttp_request*, void* it) { static_cast<TlsConnection*>(it)->replyIsSent(); },
            connection);
    }
    auto* body = evbuffer_new();
    evbuffer_add(body, response.body.data(), response.body.size());
    evhttp_send_reply(request, response.status, nullptr, body);
    evbuffer_free(body);
    // Nothing is on its way before the loop's next turn. In one piece, head and body are one record
    // and one packet.
    if (connection && response.body.size() < RecordLength)
        evbuffer_pullup(bufferevent_get_output(evhttp_connection_get_bufferevent(link)), -1);
    endOnceAnswered();
}

void HttpLoop::releaseHttp(evhttp* http) {
    evhttp_free(http);
}
void HttpLoop::releaseGroup(bufferevent_rate_limit_group* group) {
    bufferevent_rate_limit_group_free(group);
}

}  // namespace zelvo::serving
