#include "opener/channel/SealedConnection.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <utility>

#include "opener/channel/LinePump.h"
#include "platform/linux/tls/TlsBridge.h"
#include "platform/linux/tls/TlsDialer.h"

namespace zelvo::opener {

namespace {

using Clock = platform::EventLoop::Clock;
using platform::FileDescriptor;

// A network that died is noticed within these, so that there is time left to come back.
constexpr int SilenceBeforeAsking = 5;
constexpr int SecondsBetweenQuestions = 3;
constexpr int Questions = 4;
constexpr int MillisecondsUnacknowledged = 15'000;

LineEnd endOf(int error) {
    switch (error) {
        case ECONNREFUSED:
            return LineEnd::Refused;
        case ENETUNREACH:
        case EHOSTUNREACH:
        case ENETDOWN:
        case EHOSTDOWN:
            return LineEnd::NoRoute;
        case ETIMEDOUT:
            return LineEnd::TimedOut;
        default:
            return LineEnd::Unreachable;
    }
}

FileDescriptor makeSocket() {
    FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    auto set = [&](int level, int option, int value) {
        ::setsockopt(socket.get(), level, option, &value, sizeof value);
    };
    // Keys are small and are not to wait for each other.
    set(IPPROTO_TCP, TCP_NODELAY, 1);
    set(SOL_SOCKET, SO_KEEPALIVE, 1);
    set(IPPROTO_TCP, TCP_KEEPIDLE, SilenceBeforeAsking);
    set(IPPROTO_TCP, TCP_KEEPINTVL, SecondsBetweenQuestions);
    set(IPPROTO_TCP, TCP_KEEPCNT, Questions);
    set(IPPROTO_TCP, TCP_USER_TIMEOUT, MillisecondsUnacknowledged);
    return socket;
}

/// 0, an error, or none where somebody wants to leave meanwhile.
std::optional<int> connectTo(const FileDescriptor& socket, const HostLine::Target& target,
                             const FileDescriptor& leave, std::chrono::milliseconds patience) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(target.port);
    if (!socket || ::inet_pton(AF_INET, target.address.c_str(), &address.sin_addr) != 1)
        return EINVAL;
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return 0;
    if (errno != EINPROGRESS)
        return errno;
    const auto until = Clock::now() + patience;
    while (true) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
        if (left.count() <= 0)
            return ETIMEDOUT;
        std::array<pollfd, 2> either{{{socket.get(), POLLOUT, 0}, {leave.get(), POLLIN, 0}}};
        const int ready = ::poll(either.data(), either.size(), static_cast<int>(left.count()));
        if (ready > 0 && either[1].revents != 0)
            return std::nullopt;
        if (ready > 0)
            break;
    }
    int error = 0;
    socklen_t size = sizeof error;
    ::getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &error, &size);
    return error;
}

/// What the thread has of the object, which must not be asked for more.
struct Thread {
    platform::MainQueue& mainQueue;
    std::weak_ptr<HostLine::Listener> listener;
    const FileDescriptor& leave;
    HostLine::Target target;
    SealedConnection::Patience patience;

    void tell(std::function<void(HostLine::Listener&)> what) const {
        mainQueue.async([weak = listener, what = std::move(what)] {
            if (const auto listener = weak.lock())
                what(*listener);
        });
    }
    void run() const;
    void runThroughRelay() const;
    LinePump::Told told() const;
    std::optional<LineEnding> pump(platform::EventLoop& loop, FileDescriptor socket,
                                   platform::TlsDialer* dialer) const;
    std::optional<LineEnding> endingOf(const LinePump& pump) const;
};

LinePump::Told Thread::told() const {
    return {.opened =
                [this](const auto& digits) {
                    tell([digits](auto& listener) { listener.opened(digits); });
                },
            .stands =
                [this](const auto& standing) {
                    tell([standing](auto& listener) { listener.stands(standing); });
                },
            .isBack = [this] { tell([](auto& listener) { listener.isBack(); }); },
            .rfbBegan =
                [this](FileDescriptor rfb) {
                    const auto shared = std::make_shared<FileDescriptor>(std::move(rfb));
                    tell([shared](auto& listener) { listener.rfbBegan(std::move(*shared)); });
                }};
}

std::optional<LineEnding> Thread::endingOf(const LinePump& pump) const {
    auto ending = pump.ending();
    if (!ending)
        return ending;
    // Whatever else a relay answers instead of the host: the host is not there.
    if (ending->end == LineEnd::NotOurs && !target.relay.empty())
        ending->end = LineEnd::Refused;
    else if (ending->end == LineEnd::Busy && target.relay.empty())
        ending->end = LineEnd::NotOurs;
    return ending;
}

/// None where somebody left.
std::optional<LineEnding> Thread::pump(platform::EventLoop& loop, FileDescriptor socket,
                                       platform::TlsDialer* dialer) const {
    const sealing::RelayedHost relayed{target.relay, target.port};
    LinePump pump(loop, std::move(socket),
                  sealing::SealedLine::opener(target.key, target.name, target.comesBackBy,
                                              dialer ? &relayed : nullptr),
                  told());
    const auto turn = [&](Clock::time_point until) {
        loop.turn(dialer ? std::min(until, dialer->nextDeadline()) : until);
        if (dialer)
            dialer->tick(Clock::now());
    };
    bool leaves = false;
    auto until = Clock::now() + patience.proving;
    platform::EventLoop::Watch watch(loop, leave.get(), [&](auto) {
        leaves = true;
        until = Clock::now() + patience.leaving;
        watch.setEvents(0);
        pump.leave();
    });
    watch.setEvents(EPOLLIN);
    while (!leaves && !endingOf(pump)) {
        if (pump.isProven())
            until = Clock::time_point::max();
        else if (Clock::now() >= until)
            return LineEnding{LineEnd::Silent};
        turn(until);
    }
    const auto ending = endingOf(pump);
    if (!leaves) {
        tell([ending](auto& listener) { listener.ended(*ending); });
        until = Clock::now() + patience.leaving;
        watch.setEvents(0);
    }
    while (!pump.isOver() && Clock::now() < until)
        turn(until);
    return std::nullopt;
}

/// The pump has one end of a pair of sockets, and a bridge carries what goes through it.
void Thread::runThroughRelay() const {
    platform::EventLoop loop;
    platform::TlsDialer dialer(loop, target.certificateFile);
    std::optional<platform::TlsDialer::Outcome> outcome;
    dialer.dial(target.relay, patience.connecting,
                [&](platform::TlsDialer::Outcome came) { outcome = std::move(came); });
    bool leaves = false;
    {
        platform::EventLoop::Watch watch(loop, leave.get(), [&](auto) { leaves = true; });
        watch.setEvents(EPOLLIN);
        while (!outcome && !leaves) {
            loop.turn(dialer.nextDeadline());
            dialer.tick(Clock::now());
        }
    }
    if (leaves)
        return;
    std::array<int, 2> ends{-1, -1};
    if (!outcome->connection ||
        ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) != 0)
        return tell([end = endOf(outcome->systemError)](auto& listener) {
            listener.ended(LineEnding{end});
        });
    FileDescriptor ours(ends[0]);
    bool isOver = false;
    platform::TlsBridge bridge(loop, std::move(outcome->connection), "", FileDescriptor(ends[1]),
                               [&] { isOver = true; });
    if (const auto ending = pump(loop, std::move(ours), &dialer))
        tell([ending](auto& listener) { listener.ended(*ending); });
    // What was said last may still be on its way through the pair.
    for (const auto until = Clock::now() + patience.leaving; !isOver && Clock::now() < until;)
        loop.turn(until);
}

void Thread::run() const {
    if (!target.relay.empty())
        return runThroughRelay();
    platform::EventLoop loop;
    auto socket = makeSocket();
    const auto error = connectTo(socket, target, leave, patience.connecting);
    if (!error)
        return;
    auto ending = std::optional(LineEnding{endOf(*error)});
    if (*error == 0)
        ending = pump(loop, std::move(socket), nullptr);
    if (ending)
        tell([ending](auto& listener) { listener.ended(*ending); });
}

}  // namespace

SealedConnection::SealedConnection(platform::MainQueue& mainQueue, const Target& target,
                                   Listener listener, const Patience& patience)
    : listener_(std::make_shared<Listener>(std::move(listener))),
      leave_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      thread_([thread = Thread{mainQueue, listener_, leave_, target, patience}] { thread.run(); }) {
}

SealedConnection::~SealedConnection() {
    // First, since a call that waits must not find what is being destroyed.
    listener_.reset();
    ::eventfd_write(leave_.get(), 1);
    thread_.join();
}

}  // namespace zelvo::opener
