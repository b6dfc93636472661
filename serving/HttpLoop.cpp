#include "serving/HttpLoop.h"

#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <event2/http.h>
#include <event2/keyvalq_struct.h>
#include <event2/listener.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/eventfd.h>

#include "platform/linux/base/ThreadQueue.h"
#include "serving/HttpShared.h"
#include "serving/TlsConnection.h"

namespace zelvo::serving {
namespace {

using namespace std::chrono_literals;

/// For what is answered last to leave the socket, and for descriptors to become free.
constexpr auto AMoment = 100ms;
/// The library's own time for a connection without a TLS session, and never before ours else.
constexpr int LibrarySeconds = 75;

timeval asTimeval(std::chrono::milliseconds span) {
    return {static_cast<time_t>(span.count() / 1000),
            static_cast<suseconds_t>(span.count() % 1000 * 1000)};
}

/// The loop of this thread.
thread_local const HttpLoop* running = nullptr;

event_base* makeBase() {
    auto* config = event_config_new();
    // Each base has one thread, and no descriptor twice, so that changes may wait until it waits.
    event_config_set_flag(config, EVENT_BASE_FLAG_NOLOCK);
    event_config_set_flag(config, EVENT_BASE_FLAG_EPOLL_USE_CHANGELIST);
    auto* base = event_base_new_with_config(config);
    event_config_free(config);
    return base;
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
    : shared_(shared),
      most_(most),
      bell_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      base_(makeBase()) {
    auto* base = base_.get();
    bellEvent_.reset(event_new(
        base, bell_.get(), EV_READ | EV_PERSIST,
        [](int, short, void* self) { static_cast<HttpLoop*>(self)->runPosted(); }, this));
    event_add(bellEvent_.get(), nullptr);
    const auto& options = shared.options;
    if (options.bytesPerSecond > 0) {
        const auto rate = options.bytesPerSecond;
        auto* config =
            ev_token_bucket_cfg_new(rate, rate, EV_RATE_LIMIT_MAX, EV_RATE_LIMIT_MAX, nullptr);
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
        [](event_base* itsBase, void* self) {
            auto& loop = *static_cast<HttpLoop*>(self);
            ++loop.shared_.accepted;
            auto* transport = loop.shared_.tls()
                                  ? TlsConnection::make(loop)
                                  : bufferevent_socket_new(itsBase, -1, BEV_OPT_CLOSE_ON_FREE);
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
    event_base_loop(base_.get(), EVLOOP_NONBLOCK);
}

bool HttpLoop::listen(int socket) {
    const int own = ::fcntl(socket, F_DUPFD_CLOEXEC, 0);
    // A backlog of 0 leaves the socket's own.
    listener_ = evconnlistener_new(base_.get(), nullptr, nullptr,
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
    thread_ = std::thread([this] { run(); });
}

void HttpLoop::run() {
    platform::blockSignals();
    running = this;
    event_base_loop(base_.get(), EVLOOP_NO_EXIT_ON_EMPTY);
}

void HttpLoop::beginStop() {
    post([this] {
        stopping_ = true;
        accept(false);
        const auto after = asTimeval(AMoment);
        if (unanswered_ == 0)
            event_base_loopexit(base_.get(), &after);
    });
}

void HttpLoop::join() {
    if (thread_.joinable())
        thread_.join();
    // What was answered in the meantime, so that nothing is left over.
    runPosted();
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

void HttpLoop::accept(bool isOn) {
    if (!listener_ || !http_)
        return;
    if (isOn && !stopping_ && connections_ < most_)
        evconnlistener_enable(listener_);
    else
        evconnlistener_disable(listener_);
}

void HttpLoop::startTimer(event& timer, std::chrono::milliseconds after) {
    auto found = timers_.find(after);
    if (found == timers_.end()) {
        const auto span = asTimeval(after);
        found = timers_.emplace(after, event_base_init_common_timeout(base_.get(), &span)).first;
    }
    event_add(&timer, found->second);
}

void HttpLoop::handle(evhttp_request* request) {
    auto* link = evhttp_request_get_connection(request);
    auto* connection = TlsConnection::of(evhttp_connection_get_bufferevent(link));
    ++unanswered_;
    if (connection)
        connection->requestIsHere();
    char* address = nullptr;
    std::uint16_t port = 0;
    evhttp_connection_get_peer(link, &address, &port);
    HttpRequest here;
    here.port = port;
    here.client = connection
                      ? connection->client()
                      : ClientAddress::parse(address ? address : "").value_or(ClientAddress());
    if (!shared_.requestsOf.take(here.client.budgetKey())) {
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
        if (running == this)
            return send(request, std::move(response));
        post([this, request, response = std::move(response)]() mutable {
            send(request, std::move(response));
        });
    });
}

void HttpLoop::send(evhttp_request* request, HttpResponse response) {
    --unanswered_;
    auto* fields = evhttp_request_get_output_headers(request);
    for (const auto& [name, value] : response.headers)
        evhttp_add_header(fields, name.c_str(), value.c_str());
    if (stopping_)
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
    const auto after = asTimeval(AMoment);
    if (stopping_ && unanswered_ == 0)
        event_base_loopexit(base_.get(), &after);
}

void HttpLoop::post(std::function<void()> job) {
    const std::lock_guard lock(mutex_);
    posted_.push_back(std::move(job));
    if (posted_.size() == 1)
        eventfd_write(bell_.get(), 1);
}

void HttpLoop::runPosted() {
    eventfd_t rung = 0;
    eventfd_read(bell_.get(), &rung);
    std::vector<std::function<void()>> jobs;
    {
        const std::lock_guard lock(mutex_);
        jobs.swap(posted_);
    }
    for (auto& job : jobs)
        job();
}

void HttpLoop::releaseBase(event_base* base) {
    event_base_free(base);
}
void HttpLoop::releaseHttp(evhttp* http) {
    evhttp_free(http);
}
void HttpLoop::releaseEvent(event* event) {
    event_free(event);
}
void HttpLoop::releaseGroup(bufferevent_rate_limit_group* group) {
    bufferevent_rate_limit_group_free(group);
}

}  // namespace zelvo::serving
