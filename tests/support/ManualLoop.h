#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/MainQueue.h"
#include "platform/RunLoop.h"
#include "tests/support/RecordingLog.h"

namespace zelvo::test {

/// Main queue and run loop with virtual time. Nothing runs but inside `turn` and `advance`.
class ManualLoop : public platform::MainQueue, public platform::RunLoop {
  public:
    ~ManualLoop() override { close(); }

    void async(std::function<void()> job) override {
        if (open_)
            queue_.push_back(std::move(job));
    }
    bool isOpen() const override { return open_; }
    std::unique_ptr<platform::Timer> scheduleTimer(
        std::chrono::milliseconds interval, std::function<void(platform::Timer&)> tick) override {
        return std::make_unique<FakeTimer>(*this, interval, true, std::move(tick));
    }
    std::unique_ptr<platform::Perform> performAfterDelay(std::chrono::milliseconds delay,
                                                         std::function<void()> call) override {
        struct Call : platform::Perform {
            Call(ManualLoop& loop, Time delay, std::function<void()> call)
                : timer(loop, delay, false,
                        [call = std::move(call)](platform::Timer&) { call(); }) {}
            FakeTimer timer;
        };
        return std::make_unique<Call>(*this, delay, std::move(call));
    }
    std::unique_ptr<platform::Perform> performOnNextTurn(std::function<void()> call) override {
        return performAfterDelay(std::chrono::milliseconds(0), std::move(call));
    }

    /// Runs what is queued and due now, not what that queues.
    void turn() {
        for (auto count = queue_.size(); count > 0 && !queue_.empty(); --count) {
            auto job = std::move(queue_.front());
            queue_.pop_front();
            job();
        }
        runDue();
    }
    /// Turns until nothing is queued or due, at most `limit` times.
    void settle(int limit = 50) {
        for (; limit > 0 && (!queue_.empty() || count(false, now_) > 0); --limit)
            turn();
    }
    /// Lets time pass, with turns where something is due.
    void advance(std::chrono::milliseconds time) {
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
    /// Destroys what is queued and takes nothing more.
    void close() {
        open_ = false;
        // A closure's destruction may submit more, which is dropped.
        std::exchange(queue_, {});
    }

    /// Calls that wait for their turn or time.
    std::size_t waiting() const { return count(false); }
    /// Timers that still tick.
    std::size_t timers() const { return count(true); }

  private:
    using Time = std::chrono::milliseconds;

    struct FakeTimer : platform::Timer {
        FakeTimer(ManualLoop& loop, Time delay, bool repeats,
                  std::function<void(platform::Timer&)> tick)
            : loop(loop),
              delay(delay),
              repeats(repeats),
              at(loop.now_ + delay),
              tick(std::move(tick)) {
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

    std::size_t count(bool repeating, Time until = Time::max()) const {
        return static_cast<std::size_t>(
            std::count_if(timers_.begin(), timers_.end(), [&](const auto& entry) {
                return entry.second->repeats == repeating && entry.second->at <= until;
            }));
    }
    void runDue() {
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

    bool open_ = true;
    Time now_{0};
    std::uint64_t next_ = 0;
    std::deque<std::function<void()>> queue_;
    std::map<std::uint64_t, FakeTimer*> timers_;
};

}  // namespace zelvo::test
