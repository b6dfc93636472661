#include "platform/qt/core/QtMainLoop.h"

#include <QCoreApplication>
#include <algorithm>
#include <utility>

namespace zelvo::platform {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

// From the begin of one turn to that of the next where nothing else asks for one. What a turn finds
// is known no later than this, plus the millisecond that timers are rounded by.
constexpr Clock::duration CalmPace = 70ms;
constexpr Clock::duration HastyPace = 12ms;
constexpr Clock::duration HasteAfterwards = 5s;

/// What takes this long can be seen as a stutter.
constexpr Clock::duration LongWork = 30ms;

std::chrono::milliseconds roundedUp(Clock::duration duration) {
    return std::chrono::ceil<std::chrono::milliseconds>(
        std::max(duration, Clock::duration::zero()));
}

}  // namespace

class QtMainLoop::RepeatingTimer final : public Timer {
  public:
    RepeatingTimer(QtMainLoop& loop, std::chrono::milliseconds interval,
                   std::function<void(Timer&)> tick)
        : tick_(std::make_shared<Call>([this, tick = std::move(tick)] {
              if (isValid())
                  tick(*this);
          })) {
        timer_.setTimerType(Qt::PreciseTimer);
        QObject::connect(&timer_, &QTimer::timeout, &timer_,
                         [this, &loop] { loop.runInDefaultMode(tick_); });
        timer_.start(interval);
    }

    bool isValid() const override { return timer_.isActive(); }
    void invalidate() override { timer_.stop(); }

  private:
    QTimer timer_;
    std::shared_ptr<Call> tick_;
};

class QtMainLoop::DelayedPerform final : public Perform {
  public:
    DelayedPerform(QtMainLoop& loop, std::chrono::milliseconds delay, Call call)
        : call_(std::make_shared<Call>(std::move(call))) {
        timer_.setTimerType(Qt::PreciseTimer);
        timer_.setSingleShot(true);
        QObject::connect(&timer_, &QTimer::timeout, &timer_,
                         [this, &loop] { loop.runInDefaultMode(call_); });
        timer_.start(delay);
    }

  private:
    QTimer timer_;
    std::shared_ptr<Call> call_;
};

class QtMainLoop::TurnPerform final : public Perform {
  public:
    explicit TurnPerform(std::shared_ptr<Call> call) : call_(std::move(call)) {}

  private:
    std::shared_ptr<Call> call_;
};

QtMainLoop::QtMainLoop(std::function<void(const std::string&)> told) : told_(std::move(told)) {
    turnTimer_.setSingleShot(true);
    turnTimer_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&turnTimer_, &QTimer::timeout, &receiver_, [this] { runTurn(); });
}

QtMainLoop::~QtMainLoop() {
    close();
}

int QtMainLoop::run() {
    int status = QCoreApplication::exec();
    close();
    return status;
}

void QtMainLoop::close() {
    std::deque<std::function<void()>> dropped;
    {
        std::lock_guard lock(mutex_);
        open_ = false;
        dropped.swap(jobs_);
    }
    if (told_ && !dropped.empty())
        told_("closed with " + std::to_string(dropped.size()) + " jobs unrun");
}

void QtMainLoop::async(std::function<void()> job) {
    {
        std::lock_guard lock(mutex_);
        if (!open_)
            return;
        jobs_.push_back(std::move(job));
    }
    QMetaObject::invokeMethod(
        &receiver_, [this] { runOneJob(); }, Qt::QueuedConnection);
}

bool QtMainLoop::isOpen() const {
    std::lock_guard lock(mutex_);
    return open_;
}

void QtMainLoop::runOneJob() {
    std::function<void()> job;
    {
        std::lock_guard lock(mutex_);
        if (jobs_.empty())
            return;
        job = std::move(jobs_.front());
        jobs_.pop_front();
    }
    auto begin = Clock::now();
    job();
    tellIfLong("a job", begin);
}

void QtMainLoop::tellIfLong(const char* what, Clock::time_point begin) const {
    auto took = Clock::now() - begin;
    if (told_ && took >= LongWork)
        told_(what + std::string(" took ") + std::to_string(took / 1ms) + " ms");
}

std::unique_ptr<Timer> QtMainLoop::scheduleTimer(std::chrono::milliseconds interval,
                                                 std::function<void(Timer&)> tick) {
    return std::make_unique<RepeatingTimer>(*this, interval, std::move(tick));
}

std::unique_ptr<Perform> QtMainLoop::performAfterDelay(std::chrono::milliseconds delay,
                                                       std::function<void()> call) {
    return std::make_unique<DelayedPerform>(*this, delay, std::move(call));
}

std::unique_ptr<Perform> QtMainLoop::performOnNextTurn(std::function<void()> call) {
    auto kept = std::make_shared<Call>(std::move(call));
    turnCalls_.push_back(kept);
    scheduleTurn();
    return std::make_unique<TurnPerform>(std::move(kept));
}

// By value: the owner may destroy the call's object from inside the call, and the closure has to
// stay until it has returned.
void QtMainLoop::runInDefaultMode(std::shared_ptr<Call> call) {
    if (trackings_ == 0) {
        (*call)();
        return;
    }
    bool waits = std::any_of(waiting_.begin(), waiting_.end(),
                             [&](const auto& other) { return other.lock() == call; });
    if (!waits)
        waiting_.push_back(call);
}

void QtMainLoop::endTracking() {
    if (--trackings_ == 0 && !waiting_.empty())
        QMetaObject::invokeMethod(
            &receiver_, [this] { runWaiting(); }, Qt::QueuedConnection);
}

void QtMainLoop::runWaiting() {
    if (trackings_ > 0)
        return;
    for (const auto& call : std::exchange(waiting_, {}))
        if (auto kept = call.lock())
            runInDefaultMode(kept);
}

void QtMainLoop::scheduleTurn() {
    if (!inTurn_ && !turnTimer_.isActive())
        turnTimer_.start(roundedUp(nextTurn_ - Clock::now()));
}

void QtMainLoop::hurry(bool hurries) {
    auto now = Clock::now();
    hurries_ = hurries;
    hastyUntil_ = now + HasteAfterwards;
    nextTurn_ = std::min(nextTurn_, now + HastyPace);
    if (turnTimer_.isActive())
        turnTimer_.start(roundedUp(nextTurn_ - now));
}

void QtMainLoop::takeTurnNow() {
    if (inTurn_ || turnCalls_.empty())
        return;
    turnTimer_.stop();
    runTurn();
}

void QtMainLoop::runTurn() {
    auto begin = Clock::now();
    inTurn_ = true;
    for (const auto& call : std::exchange(turnCalls_, {}))
        if (auto kept = call.lock())
            (*kept)();
    inTurn_ = false;
    tellIfLong("a turn", begin);

    auto end = Clock::now();
    auto pace = hurries_ || end < hastyUntil_ ? HastyPace : CalmPace;
    // Calls that take long leave as much time to everybody else.
    nextTurn_ = std::max(begin + pace, end + (end - begin));
    if (!turnCalls_.empty())
        scheduleTurn();
}

}  // namespace zelvo::platform
