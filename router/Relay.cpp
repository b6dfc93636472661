#include "router/Relay.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>

namespace zelvo::router {

namespace {

constexpr std::size_t PendingLimit = 64 * 1024;

bool wouldBlock() {
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

bool hasFailed(int socket) {
    int error = 0;
    socklen_t size = sizeof error;
    return getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) != 0 || error != 0;
}

}  // namespace

Relay::Relay(EventLoop& loop, platform::FileDescriptor outside, platform::FileDescriptor inside,
             std::function<void()> over)
    : over_(std::move(over)),
      outside_(loop, std::move(outside),
               [this](auto events) { handle(outside_, inside_, events); }),
      inside_(loop, std::move(inside), [this](auto events) { handle(inside_, outside_, events); }) {
    inside_.connecting = true;
    update(outside_, inside_);
    update(inside_, outside_);
}

void Relay::handle(Side& side, Side& other, std::uint32_t events) {
    bool good = !(events & EPOLLERR) || !hasFailed(side.socket.get());
    if (good && side.connecting && (events & (EPOLLOUT | EPOLLHUP))) {
        side.connecting = false;
        good = !hasFailed(side.socket.get());
    }
    good = good && (!(events & (EPOLLIN | EPOLLHUP)) || read(side));
    good = good && (side.connecting || write(other, side));
    good = good && (other.connecting || write(side, other));
    if (!good || (side.closed && other.closed)) {
        const auto over = over_;
        over();
        return;
    }
    update(side, other);
    update(other, side);
}

bool Relay::read(Side& side) {
    std::array<char, 16 * 1024> buffer;
    while (!side.ended && side.pending.size() < PendingLimit) {
        const ssize_t size = recv(side.socket.get(), buffer.data(), buffer.size(), 0);
        if (size < 0) {
            return wouldBlock();
        }
        side.ended = size == 0;
        side.pending.insert(side.pending.end(), buffer.begin(), buffer.begin() + size);
    }
    return true;
}

bool Relay::write(Side& from, Side& to) {
    std::size_t done = 0;
    while (done < from.pending.size()) {
        const ssize_t size = send(to.socket.get(), from.pending.data() + done,
                                  from.pending.size() - done, MSG_NOSIGNAL);
        if (size < 0) {
            if (!wouldBlock()) {
                return false;
            }
            break;
        }
        done += static_cast<std::size_t>(size);
    }
    from.pending.erase(from.pending.begin(),
                       from.pending.begin() + static_cast<std::ptrdiff_t>(done));
    passEnd(from, to);
    return true;
}

void Relay::passEnd(Side& from, Side& to) {
    if (from.ended && from.pending.empty() && !to.closed) {
        to.closed = true;
        shutdown(to.socket.get(), SHUT_WR);
    }
}

void Relay::update(Side& side, const Side& other) {
    std::uint32_t events = 0;
    if (!side.ended && !side.connecting && side.pending.size() < PendingLimit) {
        events |= EPOLLIN;
    }
    if (side.connecting || !other.pending.empty()) {
        events |= EPOLLOUT;
    }
    side.watch.setEvents(events);
}

}  // namespace zelvo::router
