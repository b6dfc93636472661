#include "router/Forwarding.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>

namespace zelvo::router {

namespace {

/// Two descriptors each, well within the usual 1024 of a process. More wait in the kernel's queue.
constexpr std::size_t ConnectionLimit = 200;

platform::FileDescriptor openSpare() {
    return platform::FileDescriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
}

}  // namespace

Forwarding::Forwarding(EventLoop& loop, platform::FileDescriptor listener, const Endpoint& internal)
    : loop_(loop),
      listener_(std::move(listener)),
      spare_(openSpare()),
      internal_(internal),
      watch_(loop, listener_.get(), [this](std::uint32_t) { acceptAll(); }) {
    watch_.setEvents(EPOLLIN);
}

void Forwarding::acceptAll() {
    while (relays_.size() < ConnectionLimit) {
        platform::FileDescriptor outside(
            accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!outside) {
            if ((errno == EMFILE || errno == ENFILE) && refuse()) {
                continue;
            }
            break;
        }
        platform::FileDescriptor inside = openConnection(internal_);
        if (!inside) {
            continue;
        }
        const auto place = relays_.emplace(relays_.end());
        *place = std::make_unique<Relay>(loop_, std::move(outside), std::move(inside),
                                         [this, place] { remove(place); });
    }
    const bool hasRoom = relays_.size() < ConnectionLimit;
    watch_.setEvents(hasRoom ? static_cast<std::uint32_t>(EPOLLIN) : 0);
}

bool Forwarding::refuse() {
    spare_ = {};
    const bool refused(
        platform::FileDescriptor(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC)));
    spare_ = openSpare();
    return refused;
}

void Forwarding::remove(std::list<std::unique_ptr<Relay>>::iterator relay) {
    relays_.erase(relay);
    watch_.setEvents(EPOLLIN);
}

}  // namespace zelvo::router
