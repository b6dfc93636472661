#include "tests/support/ManualLoop.h"

#include <algorithm>
#include <utility>

namespace zelvo::test {

struct ManualLoop::Call : platform::Perform {
    Call(ManualLoop& loop, std::uint64_t id, std::function<void()> call)
        : loop(loop), id(id), call(std::make_shared<std::function<void()>>(std::move(call))) {}
    ~Call() override { loop.due_.erase(id); }

    ManualLoop& loop;
    std::uint64_t id;
    std::shared_ptr<std::function<void()>> call;
};

struct ManualLoop::FakeTimer : platform::Timer {
    FakeTimer(ManualLoop& loop, std::uint64_t id, Time interval,
              std::function<void(platform::Timer&)> tick)
        : loop(loop), id(id), interval(interval), at(loop.now_ + interval), tick(std::move(tick)) {}
    ~FakeTimer() override { invalidate(); }
    bool isValid() const override { return valid; }
    void invalidate() override {
        valid = false;
        loop.timers_.erase(id);
    }

    ManualLoop& loop;
    std::uint64_t id;
    Time interval;
    Time at;
    std::function<void(platform::Timer&)> tick;
    bool valid = true;
};

std::unique_ptr<platform::Timer> ManualLoop::scheduleTimer(
    std::chrono::milliseconds interval, std::function<void(platform::Timer&)> tick) {
    auto timer = std::make_unique<FakeTimer>(*this, next_++, interval, std::move(tick));
    timers_.emplace(timer->id, timer.get());
    return timer;
}

std::unique_ptr<platform::Perform> ManualLoop::performAfterDelay(std::chrono::milliseconds delay,
                                                                 std::function<void()> call) {
    auto perform = std::make_unique<Call>(*this, next_++, std::move(call));
    due_.emplace(perform->id, Due{perform->call, now_ + delay});
    return perform;
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
    std::vector<std::uint64_t> ids;
    for (const auto& [id, due] : due_)
        if (due.at <= now_)
            ids.push_back(id);
    for (auto id : ids) {
        auto found = due_.find(id);
        if (found == due_.end())
            continue;
        auto call = found->second.call.lock();
        due_.erase(found);
        if (call)
            (*call)();
    }
    ids.clear();
    for (const auto& [id, timer] : timers_)
        if (timer->at <= now_)
            ids.push_back(id);
    for (auto id : ids) {
        auto found = timers_.find(id);
        if (found == timers_.end())
            continue;
        auto* timer = found->second;
        timer->at += timer->interval;
        auto tick = timer->tick;
        tick(*timer);
    }
}

void ManualLoop::settle(int limit) {
    auto pending = [this] {
        return !queue_.empty() || std::any_of(due_.begin(), due_.end(), [this](const auto& entry) {
            return entry.second.at <= now_;
        });
    };
    for (; limit > 0 && pending(); --limit)
        turn();
}

void ManualLoop::advance(std::chrono::milliseconds time) {
    const auto end = now_ + time;
    settle();
    while (true) {
        auto next = end;
        for (const auto& [id, due] : due_)
            if (due.at > now_)
                next = std::min(next, due.at);
        for (const auto& [id, timer] : timers_)
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
