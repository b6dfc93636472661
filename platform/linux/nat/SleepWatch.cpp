#include "platform/linux/nat/SleepWatch.h"

#include <poll.h>
#include <sys/timerfd.h>
#include <time.h>

namespace zelvo::platform {

namespace {

using namespace std::chrono_literals;

std::chrono::milliseconds timeAsleep() {
    timespec awake{};
    clock_gettime(CLOCK_MONOTONIC, &awake);
    return PollLoop::now().time_since_epoch() -
           std::chrono::milliseconds(awake.tv_sec * 1000 + awake.tv_nsec / 1000000);
}

}  // namespace

SleepWatch::SleepWatch(PollLoop& loop, std::function<void()> slept)
    : slept_(std::move(slept)),
      timer_(timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC)),
      asleep_(timeAsleep()) {
    if (timer_) {
        arm();
        watch_ = loop.watch(timer_.get(), POLLIN, [this](short) { clockChanged(); });
    }
}

void SleepWatch::arm() {
    // A timer that does not come before the year 2223, and that the kernel calls off when the wall
    // clock jumps, as it does at every awakening.
    itimerspec far{};
    far.it_value.tv_sec = 8'000'000'000;
    timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &far, nullptr);
}

void SleepWatch::clockChanged() {
    std::uint64_t count = 0;
    (void)!read(timer_.get(), &count, sizeof count);
    arm();
    const auto asleep = timeAsleep();
    const bool slept = asleep > asleep_ + 1s;
    asleep_ = asleep;
    if (slept) {
        slept_();
    }
}

}  // namespace zelvo::platform
