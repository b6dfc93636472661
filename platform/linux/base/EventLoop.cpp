#include "platform/linux/base/EventLoop.h"

#include <sys/epoll.h>

#include <algorithm>
#include <array>

namespace zelvo::platform {

using namespace std::chrono_literals;

EventLoop::Watch::Watch(EventLoop& loop, int descriptor, Ready ready)
    : loop_(loop), descriptor_(descriptor), id_(loop.nextId_++) {
    loop_.ready_[id_] = std::make_shared<const Ready>(std::move(ready));
}

EventLoop::Watch::~Watch() {
    setEvents(0);
    loop_.ready_.erase(id_);
}

void EventLoop::Watch::setEvents(std::uint32_t events) {
    if (events == events_) {
        return;
    }
    epoll_event event{};
    event.events = events;
    event.data.u64 = id_;
    const int operation = events == 0    ? EPOLL_CTL_DEL
                          : events_ == 0 ? EPOLL_CTL_ADD
                                         : EPOLL_CTL_MOD;
    epoll_ctl(loop_.epoll_.get(), operation, descriptor_, &event);
    events_ = events;
}

EventLoop::EventLoop() : epoll_(epoll_create1(EPOLL_CLOEXEC)) {}

void EventLoop::turn(Clock::time_point until) {
    const Clock::time_point now = Clock::now();
    const auto wait =
        std::clamp<Clock::duration>(until == Clock::time_point::max() ? 1h : until - now, 0s, 1h);
    std::array<epoll_event, 64> events;
    const int count =
        epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()),
                   static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(wait).count()));
    for (int index = 0; index < count; ++index) {
        // By value: the kernel packs its event, so no reference to what is in it may be taken.
        const epoll_event event = events[static_cast<std::size_t>(index)];
        const std::uint64_t id = event.data.u64;
        const auto found = ready_.find(id);
        if (found != ready_.end()) {
            const auto ready = found->second;
            (*ready)(event.events);
        }
    }
}

}  // namespace zelvo::platform
