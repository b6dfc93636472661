#include "server/screen/portal/Timer.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cstdint>
#include <utility>

namespace zelvo::server {

Timer::Timer(platform::EventLoop& loop, std::function<void()> due)
    : due_(std::move(due)),
      descriptor_(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)),
      watch_(loop, descriptor_.get(), [this](auto) {
          std::uint64_t count = 0;
          if (::read(descriptor_.get(), &count, sizeof count) > 0)
              due_();
      }) {
    watch_.setEvents(EPOLLIN);
}

void Timer::set(std::chrono::milliseconds time) {
    itimerspec timer{};
    timer.it_value.tv_sec = time.count() / 1000;
    timer.it_value.tv_nsec = time.count() % 1000 * 1'000'000;
    ::timerfd_settime(descriptor_.get(), 0, &timer, nullptr);
}

}  // namespace zelvo::server
