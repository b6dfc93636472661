#include "tests/support/ManualLoop.h"

#include <algorithm>
#include <utility>

namespace zelvo::test {

struct ManualLoop::FakeTimer : platform::Timer {
    FakeTimer(ManualLoop& loop, Time delay, bool repeats,
              std::function<void(platform::Timer&)> tick)
        : loop(loop), delay(delay), repeats(repeats), at(loop.now_ + delay), tick(std::move(tick)) {
        loop.timers_.emplace(id, this);
    }
    ~FakeTimer() override { loop.timers_.erase(id); }
    bool isValid() const override { return loop.timers_.contains(id); }
    void invalidate() override { loop.timers_.erase(id); }

    ManualLoop& loop;
    const std::uint64_t id = loop.next_++;
    const Time delay;
    const bool repeats;
    Time at;
    std::function<void(platform::Timer&)> tick;
};

std::unique_ptr<platform::Timer> ManualLoop::scheduleTimer(
    std::chrono::milliseconds interval, std::function<void(platform::Timer&)> tick) {
    return std::make_unique<FakeTimer>(*this, interval, true, std::move(tick));
}

std::unique_ptr<platform::Perform> ManualLoop::performAfterDelay(std::chrono::milliseconds delay,
                                                                 std::function<void()> call) {
    struct Call : platform::Perform {
        Call(ManualLoop& loop, Time delay, std::function<void()> call)
            : timer(loop, delay, false, [call = std::move(call)](platform::Timer&) { call(); }) {}
        FakeTimer timer;
    };
    return std::make_unique<Call>(*this, delay, std::move(call));
}

std::size_t ManualLoop::count(bool repeating, Time until) const {
    return static_cast<std::size_t>(
        std::count_if(timers_.begin(), timers_.end(), [&](const auto& entry) {
            return entry.second->repeats == repeating && entry.second->at <= until;
        }));
}

void ManualLoop::turn() {
    for (auto count = queue_.size(); count > 0 && !queue_.empty(); --count) {
        auto job = std::move(queue_.front());
        queue_.pop_front();
        job();
    }
    runDue();
}

void ManualLoop::runDue() {
    for (const bool repeating : {false, true}) {
        std::vector<std::uint64_t> ids;
        for (const auto& [id, timer] : timers_)
            if (timer->repeats == repeating && timer->at <= now_)
                ids.push_back(id);
        for (auto id : ids) {
            auto found = timers_.find(id);
            if (found == timers_.end())
                continue;
            auto& timer = *found->second;
            timer.at += timer.delay;
            if (!repeating)
                timer.invalidate();
            // The call may destroy the timer.
            auto tick = timer.tick;
            tick(timer);
        }
    }
}

void ManualLoop::settle(int limit) {
    for (; limit > 0 && (!queue_.empty() || count(false, now_) > 0); --limit)
        turn();
}

void ManualLoop::advance(std::chrono::milliseconds time) {
    const auto end = now_ + time;
    settle();
    while (true) {
        auto next = end;
        for (const auto& [id, timer] : timers_)
            if (timer->at > now_)
                next = std::min(next, timer->at);
        now_ = next;
        turn();
        settle();
        if (now_ == end)
            break;
    }
}

void ManualLoop::close() {
    open_ = false;
    // A closure's destruction may submit more, which is dropped.
    std::exchange(queue_, {});
}

}  // namespace zelvo::test
