#include "relay/RelayLoop.h"

#include <event2/event.h>
#include <event2/listener.h>
#include <fcntl.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

#include "relay/Arrival.h"
#include "relay/HostLine.h"
#include "relay/Pair.h"
#include "relay/RelayShared.h"
#include "sealing/Base64.h"
#include "sealing/Primitives.h"

namespace zelvo::relay {
namespace {

using namespace std::chrono_literals;

/// For descriptors to become free.
constexpr timeval AWhile{0, 100'000};
/// For what was said last to leave the sockets.
constexpr auto EndTime = 100ms;
constexpr std::size_t TokenBytes = 16;

/// Whose place somebody else may have: of those who say nothing who came first, else of those who
/// are not answered. Null for nobody.
Pair* weakestOf(const std::vector<Pair*>& viewers, const std::string* client) {
    for (const auto hold : {Pair::Hold::Silent, Pair::Hold::Unanswered}) {
        const auto found = std::ranges::find_if(viewers, [&](const Pair* viewer) {
            return viewer->hold() == hold && (!client || viewer->client() == *client);
        });
        if (found != viewers.end())
            return *found;
    }
    return nullptr;
}

/// A viewer's place, which is then the client's. Places that were simply first come, first served
/// would be kept by strangers who only connect.
bool takePlace(HostAccount& account, const std::string& client, std::size_t most) {
    const bool hasShare = account.viewersOf.take(client);
    if (hasShare && account.viewers.size() < most)
        return true;
    auto* weakest = weakestOf(account.viewers, hasShare ? nullptr : &client);
    if (weakest)
        weakest->giveWay();
    else if (hasShare)
        account.viewersOf.giveBack(client);
    return weakest && (hasShare || account.viewersOf.take(client));
}

}  // namespace

/// A client on its way to the loop that knows what it asks for. Shared, as jobs can be copied.
struct RelayLoop::Visitor {
    std::shared_ptr<std::unique_ptr<Connection>> connection;
    std::string rest;

    std::unique_ptr<Connection> take() const { return std::move(*connection); }
};

RelayLoop::RelayLoop(RelayShared& shared, std::size_t index, std::size_t loops, std::size_t most)
    : shared_(shared), index_(index), most_(most), numbers_(index, loops) {}

RelayLoop::~RelayLoop() {
    if (listener_)
        evconnlistener_free(listener_);
}

bool RelayLoop::listen(int socket) {
    const int own = ::fcntl(socket, F_DUPFD_CLOEXEC, 0);
    listener_ = evconnlistener_new(
        thread_.base(),
        [](evconnlistener*, evutil_socket_t socket, sockaddr*, int, void* self) {
            static_cast<RelayLoop*>(self)->accepted(socket);
        },
        this, LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC, 0, own);
    if (!listener_)
        return false;
    evconnlistener_set_error_cb(listener_, [](evconnlistener*, void* self) {
        // Out of descriptors, most likely; trying again at once would only burn a core.
        static_cast<RelayLoop*>(self)->pause();
    });
    return true;
}

void RelayLoop::pause() {
    evconnlistener_disable(listener_);
    event_base_once(
        thread_.base(), -1, EV_TIMEOUT,
        [](int, short, void* it) {
            auto& loop = *static_cast<RelayLoop*>(it);
            if (loop.stopping_)
                return;
            if (loop.shared_.connections >= loop.most_)
                loop.pause();
            else
                evconnlistener_enable(loop.listener_);
        },
        this, &AWhile);
}

void RelayLoop::accepted(int socket) {
    auto connection = Connection::accept(shared_, platform::FileDescriptor(socket));
    if (connection)
        add(std::make_unique<Arrival>(*this, std::move(connection)));
    if (shared_.connections >= most_)
        pause();
}

void RelayLoop::beginStop() {
    thread_.post([this] {
        stopping_ = true;
        if (listener_)
            evconnlistener_disable(listener_);
        while (!members_.empty())
            members_.begin()->second->retire();
        thread_.endAfter(EndTime);
    });
}

void RelayLoop::add(std::unique_ptr<Member> member) {
    auto& added = *member;
    members_.emplace(&added, std::move(member));
    if (stopping_)
        added.retire();
    else
        added.begin();
}

void RelayLoop::bury(Member& member) {
    auto found = members_.extract(&member);
    if (buried_.empty())
        thread_.post([this] { buried_.clear(); });
    buried_.push_back(std::move(found.mapped()));
}

void RelayLoop::forget(int number, const HostLine& line) {
    auto* entry = numbers_.find(number);
    if (entry && entry->line == &line)
        entry->line = nullptr;
}

void RelayLoop::refuse(std::unique_ptr<Connection> connection, int status,
                       std::chrono::seconds retry) {
    ++shared_.metrics.counter("zelvo_relay_refused_total", "Requests by why they were refused.",
                              "status=\"" + std::to_string(status) + "\"");
    add(std::make_unique<Leaver>(*this, std::move(connection),
                                 textOf(Reply{.status = status, .retryAfter = retry})));
}

void RelayLoop::hear(Request request, std::unique_ptr<Connection> connection, std::string rest) {
    const auto* host = std::get_if<HostRequest>(&request);
    const auto* back = std::get_if<DialBackRequest>(&request);
    // Who pays for these two depends on what they show.
    if (!host && !back && !charge(*connection))
        return refuse(std::move(connection), 429);
    if (const auto* bad = std::get_if<BadRequest>(&request))
        return refuse(std::move(connection), bad->status);
    Visitor visitor{std::make_shared<std::unique_ptr<Connection>>(std::move(connection)),
                    std::move(rest)};
    if (host)
        hear(*host, std::move(visitor));
    else if (back)
        hear(*back, std::move(visitor));
    else
        hear(std::get<ViewerRequest>(request), std::move(visitor));
}

bool RelayLoop::charge(const Connection& connection) {
    return shared_.requestsOf.take(connection.client().budgetKey());
}

void RelayLoop::hear(const HostRequest& request, Visitor visitor) {
    const auto now = std::time(nullptr);
    // Checking it costs less than the handshake did.
    auto lease =
        request.lease.empty() ? std::nullopt : Lease::read(request.lease, shared_.leaseKey);
    if (lease && lease->end <= now)
        lease.reset();
    // A host that comes back has a budget of its own, which nobody else at its address can use up.
    if (!(lease ? shared_.requestsOf.take(lease->host) : charge(**visitor.connection)))
        return refuse(visitor.take(), 429);
    const auto ticket = Ticket::read(request.ticket, shared_.serviceKeys);
    if (!ticket || ticket->end <= now || ticket->relay != shared_.options.name)
        return refuse(visitor.take(), 403);
    const auto left = std::chrono::ceil<std::chrono::seconds>(
        shared_.begun + std::chrono::seconds(shared_.options.settle) - RelayShared::Clock::now());
    if (!lease && left.count() > 0)
        return refuse(visitor.take(), 503, left);
    auto& loop = lease ? shared_.loopOfNumber(lease->number) : *this;
    loop.thread().post([&loop, ticket = *ticket, lease, visitor = std::move(visitor)] {
        loop.takeHost(ticket, lease, visitor);
    });
}

void RelayLoop::takeHost(const Ticket& ticket, const std::optional<Lease>& lease, Visitor visitor) {
    auto connection = visitor.take();
    const auto number = numbers_.give(lease, std::time(nullptr));
    if (!number)
        return refuse(std::move(connection), 429);
    auto& entry = *numbers_.find(*number);
    if (entry.line)
        entry.line->retire();
    const auto client = connection->client().budgetKey();
    if (!shared_.hostsAt.take(client))
        return refuse(std::move(connection), 429);
    if (!shared_.hostsOf.take(ticket.owner)) {
        shared_.hostsAt.giveBack(client);
        return refuse(std::move(connection), 429);
    }
    // Who shows no secret is another owner each time, but no other host.
    if (!entry.account)
        entry.account = std::make_shared<HostAccount>(shared_.options.bytesPerHost,
                                                      shared_.options.viewersPerClient);
    entry.account->owner = ticket.owner;
    entry.account->client = client;
    auto line = std::make_unique<HostLine>(*this, std::move(connection),
                                           HostLine::Host{*number, entry.host, ticket.owner});
    entry.line = line.get();
    add(std::move(line));
}

void RelayLoop::hear(const ViewerRequest& request, Visitor visitor) {
    auto& loop = shared_.loopOfNumber(request.number);
    loop.thread().post(
        [&loop, request, visitor = std::move(visitor)] { loop.takeViewer(request, visitor); });
}

void RelayLoop::takeViewer(const ViewerRequest& request, Visitor visitor) {
    auto connection = visitor.take();
    const auto* entry = numbers_.find(request.number);
    if (!entry || !entry->line)
        return refuse(std::move(connection), 404);
    if (!takePlace(*entry->account, connection->client().budgetKey(),
                   shared_.options.viewersPerHost))
        return refuse(std::move(connection), 429);
    const auto token = freshToken();
    const Line call{Line::Kind::Viewer, token, connection->client().text()};
    auto* line = entry->line;
    auto pair = std::make_unique<Pair>(*this, std::move(connection), request, visitor.rest, token,
                                       entry->account);
    waiting_.emplace(token, pair.get());
    add(std::move(pair));
    line->say(textOf(call));
}

/// Its first byte tells whose it is.
std::string RelayLoop::freshToken() const {
    std::array<unsigned char, TokenBytes> bytes{};
    do
        sealing::fillWithRandom(bytes);
    while (bytes[0] % shared_.loops.size() != index_);
    return sealing::encodeBase64({reinterpret_cast<const char*>(bytes.data()), bytes.size()},
                                 sealing::Base64::ForLinks);
}

void RelayLoop::hear(const DialBackRequest& request, Visitor visitor) {
    const auto bytes = sealing::decodeBase64(request.token, sealing::Base64::ForLinks);
    if (!bytes || bytes->size() != TokenBytes)
        return refuseToken(visitor.take());
    auto& loop = shared_.loopOfToken(static_cast<unsigned char>(bytes->front()));
    loop.thread().post([&loop, token = request.token, visitor = std::move(visitor)] {
        loop.takeDialBack(token, visitor);
    });
}

void RelayLoop::takeDialBack(const std::string& token, Visitor visitor) {
    const auto found = waiting_.find(token);
    if (found == waiting_.end())
        return refuseToken(visitor.take());
    found->second->join(visitor.take(), visitor.rest);
}

// A token that is known was paid for by the viewer; the host's budget would be the strangers' to
// use up.
void RelayLoop::refuseToken(std::unique_ptr<Connection> connection) {
    const int status = charge(*connection) ? 404 : 429;
    refuse(std::move(connection), status);
}

}  // namespace zelvo::relay
