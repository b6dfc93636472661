#include "serving/LoopThread.h"

#include <event2/event.h>
#include <sys/eventfd.h>

#include <utility>

#include "platform/linux/base/ThreadQueue.h"

namespace zelvo::serving {
namespace {

timeval timevalOf(std::chrono::milliseconds span) {
    return {static_cast<time_t>(span.count() / 1000),
            static_cast<suseconds_t>(span.count() % 1000 * 1000)};
}

/// The loop of this thread.
thread_local const LoopThread* running = nullptr;

event_base* makeBase(LoopThread::Descriptors descriptors) {
    auto* config = event_config_new();
    // Each base has one thread.
    event_config_set_flag(config, EVENT_BASE_FLAG_NOLOCK);
    if (descriptors == LoopThread::Descriptors::Stay)
        event_config_set_flag(config, EVENT_BASE_FLAG_EPOLL_USE_CHANGELIST);
    auto* base = event_base_new_with_config(config);
    event_config_free(config);
    return base;
}

}  // namespace

LoopThread::LoopThread(Descriptors descriptors)
    : bell_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      base_(makeBase(descriptors)),
      turns_(base()) {
    bellEvent_.reset(event_new(
        base(), bell_.get(), EV_READ | EV_PERSIST,
        [](int, short, void* self) { static_cast<LoopThread*>(self)->runPosted(); }, this));
    event_add(bellEvent_.get(), nullptr);
}

LoopThread::~LoopThread() = default;

void LoopThread::start() {
    thread_ = std::thread([this] {
        platform::blockSignals();
        running = this;
        event_base_loop(base(), EVLOOP_NO_EXIT_ON_EMPTY);
    });
}

void LoopThread::endAfter(std::chrono::milliseconds span) {
    const auto after = timevalOf(span);
    event_base_loopexit(base(), &after);
}

void LoopThread::join() {
    if (thread_.joinable())
        thread_.join();
    runPosted();
}

bool LoopThread::isHere() const {
    return running == this;
}

void LoopThread::startTimer(event& timer, std::chrono::milliseconds after) {
    auto found = timers_.find(after);
    if (found == timers_.end()) {
        const auto span = timevalOf(after);
        found = timers_.emplace(after, event_base_init_common_timeout(base_.get(), &span)).first;
    }
    event_add(&timer, found->second);
}

void LoopThread::post(std::function<void()> job) {
    const std::lock_guard lock(mutex_);
    posted_.push_back(std::move(job));
    if (posted_.size() == 1)
        eventfd_write(bell_.get(), 1);
}

void LoopThread::runPosted() {
    eventfd_t rung = 0;
    eventfd_read(bell_.get(), &rung);
    std::vector<std::function<void()>> jobs;
    {
        const std::lock_guard lock(mutex_);
        jobs.swap(posted_);
    }
    for (auto& job : jobs)
        job();
}

void LoopThread::Releaser::operator()(event_base* base) const {
    event_base_free(base);
}
void LoopThread::Releaser::operator()(event* event) const {
    event_free(event);
}

}  // namespace zelvo::serving
