#include "server/gate/Gate.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <tuple>
#include <utility>
#include <variant>

namespace zelvo::server {

namespace {

using namespace std::chrono_literals;
using namespace platform::gate;

// A stranger costs at most so many connections in each moment; the kernel keeps a few more waiting
// and drops the rest.
constexpr int acceptsAMoment = 10;
constexpr auto moment = 100ms;
constexpr int backlog = 16;
/// Of those who are announced. Zelvo brings 32 at once; others have gone before they were taken.
constexpr std::size_t mostOnTheWay = 64;

/// This thread's.
std::chrono::nanoseconds processorTime() {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

struct Words {
    std::string_view reason;
    sealing::Farewell farewell;
};

Words wordsFor(Refusal refusal) {
    using sealing::Farewell;
    switch (refusal) {
        case Refusal::No:
            return {"The person at the computer said no.", Farewell::Refused};
        case Refusal::NotAnswered:
            return {"Nobody at the computer answered.", Farewell::NotAnswered};
        case Refusal::Everybody:
            return {"Nobody is let in at the moment.", Farewell::Everybody};
        case Refusal::NoProof:
            return {"Only people who open the link are let in.", Farewell::Refused};
        case Refusal::TooSoon:
            return {"You were not let in a moment ago. Try again later.", Farewell::TooSoon};
        case Refusal::TooMany:
            return {"Too many others wait. Try again later.", Farewell::TooMany};
        case Refusal::HandshakeTooLong:
            break;
    }
    return {{}, Farewell::NotAnswered};
}

Ending endingFor(Refusal refusal) {
    return refusal == Refusal::NotAnswered ? Ending::NotAnswered : Ending::Refused;
}

Address addressOf(const Peer& peer) {
    Address address{};
    std::ranges::copy(peer.address, address.begin());
    return address;
}

/// Of IPv6 the network, of which who has one address has all.
Address addressOf(const std::string& text) {
    Address address{};
    in6_addr parsed{};
    if (::inet_pton(AF_INET, text.c_str(), &parsed) == 1)
        std::memcpy(address.data(), &parsed, sizeof(in_addr));
    else if (::inet_pton(AF_INET6, text.c_str(), &parsed) == 1)
        std::memcpy(address.data(), &parsed, address.size());
    return address;
}

bool set(int socket, int level, int option, int value) {
    return ::setsockopt(socket, level, option, &value, sizeof value) == 0;
}

}  // namespace

platform::FileDescriptor Gate::bind(std::uint16_t port) {
    platform::FileDescriptor socket(
        ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    // Accepted sockets inherit all of it. 30 s without a sign of life, whether there is something
    // on the way (tcp(7), TCP_USER_TIMEOUT) or not (keep-alive); MTU 1,280 less 60 of headers.
    if (!socket || !set(socket.get(), SOL_SOCKET, SO_REUSEADDR, 1) ||
        !set(socket.get(), SOL_SOCKET, SO_KEEPALIVE, 1) ||
        !set(socket.get(), IPPROTO_TCP, TCP_KEEPIDLE, 10) ||
        !set(socket.get(), IPPROTO_TCP, TCP_KEEPINTVL, 5) ||
        !set(socket.get(), IPPROTO_TCP, TCP_KEEPCNT, 4) ||
        !set(socket.get(), IPPROTO_TCP, TCP_USER_TIMEOUT, 30'000) ||
        !set(socket.get(), IPPROTO_TCP, TCP_MAXSEG, 1220) ||
        !set(socket.get(), IPPROTO_TCP, TCP_NODELAY, 1) ||
        ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return {};
    return socket;
}

bool Gate::listen(const platform::FileDescriptor& bound) {
    return ::listen(bound.get(), backlog) == 0;
}

Gate::Gate(platform::EventLoop& loop, platform::FileDescriptor listener, Handlers handlers,
           const Doorkeeper::Limits& limits)
    : loop_(loop),
      listener_(std::move(listener)),
      handlers_(std::move(handlers)),
      // No link yet: nobody has this key.
      link_(std::make_shared<HeldLink>(sealing::ShareLink{{}, sealing::newLinkKey()})),
      doorkeeper_(limits),
      accepts_(acceptsAMoment),
      watch_(loop, listener_.get(), [this](auto) { accept(); }) {
    watch_.setEvents(EPOLLIN);
}

void Gate::accept() {
    while (true) {
        if (accepts_-- <= 0) {
            watch_.setEvents(0);
            return;
        }
        if (acceptsAgain_ == Time{})
            acceptsAgain_ = now() + moment;
        sockaddr_in from{};
        socklen_t size = sizeof from;
        platform::FileDescriptor socket(::accept4(listener_.get(),
                                                  reinterpret_cast<sockaddr*>(&from), &size,
                                                  SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!socket) {
            // Without descriptors, too, it is tried again a moment later.
            if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM)
                watch_.setEvents(0);
            return;
        }
        Peer peer;
        std::memcpy(peer.address.data(), &from.sin_addr, peer.address.size());
        peer.port = ntohs(from.sin_port);
        auto origin = takeOrigin(peer);
        if (!origin)
            continue;
        const auto viewer = ++lastViewer_;
        const auto arrival = doorkeeper_.arrive(
            viewer, origin->empty() ? addressOf(peer) : addressOf(*origin), now());
        if (arrival.pushedOut)
            sendAway(*arrival.pushedOut, Refusal::HandshakeTooLong);
        if (!arrival.hasPlace)
            continue;
        callers_[viewer] = std::make_unique<Caller>(
            loop_, tls_, std::move(socket), peer, std::move(*origin),
            Caller::Handlers{.link = [this] { return link_; },
                             .ready = [this, viewer] { callerIsReady(viewer); },
                             .gone = [this, viewer] { callerIsGone(viewer); }});
    }
}

std::optional<std::string> Gate::takeOrigin(const Peer& peer) {
    if (peer.address != relayedAddress)
        return "";
    // It was said before they connected, and may still wait to be read.
    if (handlers_.catchUp)
        handlers_.catchUp();
    const auto announced = std::ranges::find(announced_, peer.port, &Relayed::port);
    if (announced == announced_.end())
        return std::nullopt;
    auto origin = std::move(announced->origin);
    announced_.erase(announced);
    return origin;
}

void Gate::announce(const Relayed& relayed) {
    std::erase_if(announced_, [&](const auto& entry) { return entry.port == relayed.port; });
    // Those who came first have come by now, or never will.
    if (announced_.size() == mostOnTheWay)
        announced_.pop_front();
    announced_.push_back(relayed);
}

void Gate::callerIsReady(ViewerId viewer) {
    if (comesBack(viewer))
        return;
    const auto proof = callers_.at(viewer)->proof() ? Proof::Link : Proof::None;
    if (auto refusal = doorkeeper_.ready(viewer, proof, now()))
        return sendAway(viewer, *refusal);
    tellQuestion(Ending::ViewerLeft);
}

void Gate::callerIsGone(ViewerId viewer) {
    auto caller = callers_.extract(viewer);
    if (caller) {
        if (caller.mapped()->knowsAnswer())
            doorkeeper_.seesDigits(viewer);
        // Whoever is no opener of this link is told so.
        if (caller.mapped()->isSealed())
            departures_.add(caller.mapped()->release(), Departures::Who::Stranger, now());
        letGo(std::move(caller.mapped()));
    }
    doorkeeper_.leave(viewer, now());
    tellQuestion(Ending::ViewerLeft);
}

void Gate::letGo(std::unique_ptr<Caller> caller) {
    goneCallers_.push_back(std::move(caller));
}

ViewerId Gate::nextToAgree(Proof kind) const {
    // One who was heard once has all but come through, and is finished first. Who comes last is
    // heard before those who came earlier: where more come than can be heard, all others would wait
    // for longer than they have.
    auto turn = [](int agreements) {
        return agreements == 0 ? 1 : agreements == 1 ? 0 : agreements;
    };
    // Openers of ours are through in three turns. Who keeps coming to them waits for all others.
    constexpr int MostTurns = 8;
    ViewerId next = 0;
    std::tuple<bool, bool, bool, int> best;
    for (const auto& [viewer, caller] : callers_) {
        const std::tuple order{caller->agreements() > MostTurns, !caller->knowsAnswer(),
                               !caller->isOpener(), turn(caller->agreements())};
        const bool isOfKind = caller->isSealed() == (kind == Proof::Link);
        if (isOfKind && caller->wantsToAgree() && (next == 0 || order <= best)) {
            next = viewer;
            best = order;
        }
    }
    return next;
}

void Gate::agree(Proof kind, Time time) {
    auto& budget = budgets_[static_cast<std::size_t>(kind)];
    const auto viewer = budget.isOpen(time) ? nextToAgree(kind) : 0;
    if (viewer == 0)
        return;
    const auto before = processorTime();
    auto& caller = *callers_.at(viewer);
    // It is kept till the end of the turn, also where this is the end of it.
    caller.agree();
    budget.spend(processorTime() - before, time);
    if (!callers_.contains(viewer))
        return;
    if (caller.knowsAnswer())
        doorkeeper_.seesDigits(viewer);
    if (caller.isOpener())
        doorkeeper_.isOpener(viewer);
}

void Gate::sendAway(ViewerId viewer, Refusal refusal) {
    const auto words = wordsFor(refusal);
    sendAway(viewer, words.reason, words.farewell);
}

void Gate::sendAway(ViewerId viewer, std::string_view reason, sealing::Farewell farewell) {
    auto caller = callers_.extract(viewer);
    if (!caller)
        return;
    departures_.add(caller.mapped()->refuse(reason, farewell), Departures::Who::Stranger, now());
    letGo(std::move(caller.mapped()));
}

void Gate::sendAway(const std::vector<std::pair<ViewerId, Refusal>>& leaving) {
    for (const auto& [viewer, refusal] : leaving)
        sendAway(viewer, refusal);
}

void Gate::tellQuestion(Ending endingOfLast) {
    tellStandings();
    auto asked = doorkeeper_.asked();
    if (told_ && told_->viewer != asked.value_or(everybody)) {
        handlers_.tell(QuestionOver{told_->viewer, endingOfLast});
        told_.reset();
    }
    if (!asked)
        return;
    const auto& caller = *callers_.at(*asked);
    const auto left = std::chrono::ceil<std::chrono::seconds>(doorkeeper_.askedUntil() - now());
    const auto* proof = caller.proof();
    Question question{.viewer = *asked,
                      .peer = caller.peer(),
                      .isEncrypted = caller.isEncrypted(),
                      .secondsLeft = static_cast<std::uint16_t>(std::max<long>(left.count(), 0)),
                      .waiting = static_cast<std::uint8_t>(doorkeeper_.waiting()),
                      .name = proof ? proof->name() : std::string(),
                      .digits = proof ? proof->digits() : std::string(),
                      .origin = caller.origin()};
    if (told_ && told_->waiting == question.waiting)
        return;
    told_ = question;
    handlers_.tell(question);
}

void Gate::tellStandings() {
    using Place = sealing::Standing::Place;
    for (const auto& [viewer, caller] : callers_) {
        if (viewer != doorkeeper_.asked()) {
            caller->tell({Place::InLine});
            continue;
        }
        // Told with the question, and not each second.
        if (told_ && told_->viewer == viewer)
            continue;
        const auto left = std::chrono::ceil<std::chrono::seconds>(doorkeeper_.askedUntil() - now());
        caller->tell({Place::Asked, static_cast<std::uint16_t>(std::max<long>(left.count(), 0))});
    }
}

void Gate::handle(const Message& message) {
    if (const auto* reply = std::get_if<Reply>(&message))
        return answer(*reply);
    if (const auto* request = std::get_if<SetRights>(&message))
        return setRights(*request);
    if (const auto* request = std::get_if<Disconnect>(&message))
        return disconnect(request->viewer);
    if (const auto* request = std::get_if<QuestionShown>(&message))
        return showQuestion(request->isShown);
    if (const auto* request = std::get_if<RefuseEverybody>(&message)) {
        for (auto viewer : doorkeeper_.refuseEverybody(request->isOn, now()))
            sendAway(viewer, Refusal::Everybody);
        return tellQuestion(Ending::Refused);
    }
    if (const auto* request = std::get_if<AdmitOnlyLinkHolders>(&message)) {
        for (auto viewer : doorkeeper_.admitOnlyProven(request->isOn, now()))
            sendAway(viewer, Refusal::NoProof);
        return tellQuestion(Ending::Refused);
    }
    if (const auto* relayed = std::get_if<Relayed>(&message))
        return announce(*relayed);
    if (const auto* link = std::get_if<Link>(&message))
        setLink(*link);
}

Time Gate::nextDeadline() const {
    auto next = doorkeeper_.nextDeadline();
    if (acceptsAgain_ != Time{})
        next = std::min(next, acceptsAgain_);
    for (auto kind : {Proof::None, Proof::Link}) {
        if (nextToAgree(kind) != 0)
            next = std::min(next, budgets_[static_cast<std::size_t>(kind)].opensAt());
    }
    for (const auto& [viewer, caller] : callers_)
        next = std::min(next, caller->greetsAt());
    next = std::min({next, departures_.nextDeadline(), returns_.nextDeadline()});
    for (const auto& [viewer, entry] : guests_)
        next = std::min(next, entry.guest->deadline());
    return next;
}

void Gate::tick(Time time) {
    goneCallers_.clear();
    goneGuests_.clear();
    if (acceptsAgain_ != Time{} && time >= acceptsAgain_) {
        acceptsAgain_ = {};
        accepts_ = acceptsAMoment;
        watch_.setEvents(EPOLLIN);
    }
    for (const auto& [viewer, caller] : callers_) {
        if (time >= caller->greetsAt())
            caller->greet();
    }
    // One of each kind a turn: viewers inside never wait for more.
    for (auto kind : {Proof::Link, Proof::None})
        agree(kind, time);
    std::optional<Refusal> last;
    for (const auto& [viewer, refusal] : doorkeeper_.overdue(time)) {
        if (told_ && told_->viewer == viewer)
            last = refusal;
        sendAway(viewer, refusal);
    }
    tellQuestion(last ? endingFor(*last) : Ending::ViewerLeft);
    departures_.tick(time);
    tellGone(returns_.tick(time), Ending::NetworkDied);
    std::vector<ViewerId> standing;
    for (const auto& [viewer, entry] : guests_) {
        if (time >= entry.guest->deadline())
            standing.push_back(viewer);
    }
    for (auto viewer : standing)
        guestEnded(viewer, Ending::NetworkDied);
    goneGuests_.clear();
    goneCallers_.clear();
}

}  // namespace zelvo::server
