#include "server/gate/Gate.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <ctime>
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

constexpr auto timeToReadTheReason = 1s;
constexpr std::size_t mostLeaving = 32;

Time now() {
    return platform::EventLoop::Clock::now();
}

/// This thread's.
std::chrono::nanoseconds processorTime() {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

std::string_view reasonFor(Refusal refusal) {
    switch (refusal) {
        case Refusal::No:
            return "The person at the computer said no.";
        case Refusal::NotAnswered:
            return "Nobody at the computer answered.";
        case Refusal::Everybody:
            return "Nobody is let in at the moment.";
        case Refusal::TooSoon:
            return "You were not let in a moment ago. Try again later.";
        case Refusal::TooMany:
            return "Too many others wait. Try again later.";
        case Refusal::HandshakeTooLong:
            break;
    }
    return {};
}

Ending endingFor(Refusal refusal) {
    return refusal == Refusal::NotAnswered ? Ending::NotAnswered : Ending::Refused;
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
        const auto viewer = ++lastViewer_;
        if (!doorkeeper_.arrive(viewer, peer.address, now()))
            continue;
        callers_[viewer] = std::make_unique<Caller>(
            loop_, tls_, std::move(socket), peer,
            Caller::Handlers{.ready = [this, viewer] { callerIsReady(viewer); },
                             .gone = [this, viewer] { callerIsGone(viewer); }});
    }
}

void Gate::callerIsReady(ViewerId viewer) {
    if (auto refusal = doorkeeper_.ready(viewer, now()))
        return sendAway(viewer, *refusal);
    tellQuestion(Ending::ViewerLeft);
}

void Gate::callerIsGone(ViewerId viewer) {
    auto caller = callers_.extract(viewer);
    if (caller)
        letGo(std::move(caller.mapped()));
    doorkeeper_.leave(viewer, now());
    tellQuestion(Ending::ViewerLeft);
}

void Gate::letGo(std::unique_ptr<Caller> caller) {
    goneCallers_.push_back(std::move(caller));
}

Caller* Gate::nextToAgree() const {
    for (const auto& [viewer, caller] : callers_) {
        if (caller->wantsToAgree())
            return caller.get();
    }
    return nullptr;
}

void Gate::sendAway(ViewerId viewer, Refusal refusal) {
    auto caller = callers_.extract(viewer);
    if (!caller)
        return;
    auto stream = caller.mapped()->refuse(reasonFor(refusal));
    letGo(std::move(caller.mapped()));
    if (leaving_.size() >= mostLeaving)
        return;
    ::shutdown(stream.descriptor(), SHUT_WR);
    leaving_.push_back({std::move(stream), now() + timeToReadTheReason});
}

void Gate::sendAway(const std::vector<std::pair<ViewerId, Refusal>>& leaving) {
    for (const auto& [viewer, refusal] : leaving)
        sendAway(viewer, refusal);
}

void Gate::tellQuestion(Ending endingOfLast) {
    auto asked = doorkeeper_.asked();
    if (told_ && told_->viewer != asked.value_or(everybody)) {
        handlers_.tell(QuestionOver{told_->viewer, endingOfLast});
        told_.reset();
    }
    if (!asked)
        return;
    const auto& caller = *callers_.at(*asked);
    const auto left = std::chrono::ceil<std::chrono::seconds>(doorkeeper_.askedUntil() - now());
    Question question{.viewer = *asked,
                      .peer = caller.peer(),
                      .isEncrypted = caller.isEncrypted(),
                      .secondsLeft = static_cast<std::uint16_t>(std::max<long>(left.count(), 0)),
                      .waiting = static_cast<std::uint8_t>(doorkeeper_.waiting())};
    if (told_ && told_->waiting == question.waiting)
        return;
    told_ = question;
    handlers_.tell(question);
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
        for (auto viewer : doorkeeper_.refuseEverybody(request->isOn))
            sendAway(viewer, Refusal::Everybody);
        tellQuestion(Ending::Refused);
    }
}

void Gate::answer(const Reply& reply) {
    if (doorkeeper_.asked() != reply.viewer)
        return;
    const bool isYes = reply.answer != Answer::Refuse;
    sendAway(doorkeeper_.answered(isYes, now()));
    if (!isYes)
        return tellQuestion(Ending::Refused);
    auto caller = callers_.extract(reply.viewer);
    const Inside inside{.viewer = reply.viewer,
                        .peer = caller.mapped()->peer(),
                        .isEncrypted = caller.mapped()->isEncrypted(),
                        .rights = reply.answer == Answer::Control && !letsOnlyWatch_
                                      ? Rights::Control
                                      : Rights::Watch};
    auto guest = std::make_unique<Guest>(
        loop_, caller.mapped()->admit(),
        [this, viewer = reply.viewer](Ending ending) { guestEnded(viewer, ending); });
    letGo(std::move(caller.mapped()));
    guest->setInputPasses(inside.rights == Rights::Control && !isQuestionShown_);
    told_.reset();
    // In this order: nobody is inside of whom it has not been said.
    handlers_.tell(inside);
    auto serverEnd = guest->takeServerEnd();
    guests_[reply.viewer] = {inside.peer, inside.rights, inside.isEncrypted, std::move(guest)};
    if (serverEnd)
        handlers_.admit(reply.viewer, std::move(serverEnd), inside.rights);
    else
        guestEnded(reply.viewer, Ending::ScreenEnded);
    tellQuestion(Ending::ViewerLeft);
}

void Gate::setRights(const SetRights& request) {
    auto guest = guests_.find(request.viewer);
    if (guest == guests_.end() || guest->second.rights == request.rights ||
        (letsOnlyWatch_ && request.rights == Rights::Control))
        return;
    auto& entry = guest->second;
    entry.rights = request.rights;
    entry.guest->setInputPasses(entry.rights == Rights::Control && !isQuestionShown_);
    handlers_.setRights(request.viewer, entry.rights);
    handlers_.tell(Inside{request.viewer, entry.peer, entry.isEncrypted, entry.rights});
}

void Gate::showQuestion(bool isShown) {
    if (isShown == std::exchange(isQuestionShown_, isShown))
        return;
    for (auto& [viewer, entry] : guests_)
        entry.guest->setInputPasses(entry.rights == Rights::Control && !isShown);
    handlers_.setInputPasses(!isShown);
}

void Gate::guestEnded(ViewerId viewer, Ending ending) {
    auto guest = guests_.extract(viewer);
    if (!guest)
        return;
    goneGuests_.push_back(std::move(guest.mapped().guest));
    handlers_.tell(Left{viewer, ending});
}

void Gate::disconnect(ViewerId viewer) {
    if (viewer != everybody)
        return guestEnded(viewer, Ending::Disconnected);
    while (!guests_.empty())
        guestEnded(guests_.begin()->first, Ending::Disconnected);
    if (doorkeeper_.asked())
        sendAway(doorkeeper_.answered(false, now()));
    for (auto waiting : doorkeeper_.everybodyAtTheDoor()) {
        doorkeeper_.leave(waiting, now());
        sendAway(waiting, Refusal::No);
    }
    tellQuestion(Ending::Disconnected);
}

Time Gate::nextDeadline() const {
    auto next = doorkeeper_.nextDeadline();
    if (acceptsAgain_ != Time{})
        next = std::min(next, acceptsAgain_);
    if (nextToAgree())
        next = std::min(next, budget_.opensAt());
    for (const auto& leaving : leaving_)
        next = std::min(next, leaving.until);
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
    // One a turn: viewers inside never wait for more.
    if (auto* caller = budget_.isOpen(time) ? nextToAgree() : nullptr) {
        const auto before = processorTime();
        caller->agree();
        budget_.spend(processorTime() - before, time);
    }
    std::optional<Refusal> last;
    for (const auto& [viewer, refusal] : doorkeeper_.overdue(time)) {
        if (told_ && told_->viewer == viewer)
            last = refusal;
        sendAway(viewer, refusal);
    }
    tellQuestion(last ? endingFor(*last) : Ending::ViewerLeft);
    leaving_.remove_if([&](const Leaving& leaving) { return time >= leaving.until; });
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
