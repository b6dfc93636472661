#include "platform/linux/relay/RelayWorker.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <memory>
#include <system_error>
#include <utility>

#include "platform/linux/base/ThreadQueue.h"

namespace zelvo::platform {

namespace {

/// For the goodbye to reach who is inside, also where this computer is busy.
constexpr std::chrono::milliseconds LongestEnding{1000};

}  // namespace

RelayWorker::RelayWorker(std::string certificateFile, RelayHost::Told told)
    : certificateFile_(std::move(certificateFile)),
      told_(std::move(told)),
      wake_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}

RelayWorker::~RelayWorker() {
    if (!thread_.joinable())
        return;
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    ::eventfd_write(wake_.get(), 1);
    thread_.join();
}

void RelayWorker::enlist(int round, RelayHost::Place place) {
    try {
        if (!thread_.joinable())
            thread_ = std::thread([this] { run(); });
    } catch (const std::system_error&) {
        return told_.ended(round, std::chrono::seconds(0));
    }
    post([round, place = std::move(place)](RelayHost& host) { host.enlist(round, place); });
}

void RelayWorker::resign(int round) {
    post([round](RelayHost& host) { host.resign(round); });
}

void RelayWorker::join(int viewer, FileDescriptor socket) {
    // What std::function holds can be copied.
    const auto shared = std::make_shared<FileDescriptor>(std::move(socket));
    post([viewer, shared](RelayHost& host) { host.join(viewer, std::move(*shared)); });
}

void RelayWorker::post(Job job) {
    {
        const std::lock_guard lock(mutex_);
        jobs_.push_back(std::move(job));
    }
    ::eventfd_write(wake_.get(), 1);
}

bool RelayWorker::doJobs(RelayHost& host) {
    std::vector<Job> jobs;
    bool ending = false;
    {
        const std::lock_guard lock(mutex_);
        jobs = std::exchange(jobs_, {});
        ending = ending_;
    }
    for (const auto& job : jobs)
        job(host);
    return !ending;
}

void RelayWorker::run() {
    blockSignals();
    EventLoop loop;
    RelayHost host(loop, certificateFile_, told_);
    EventLoop::Watch watch(loop, wake_.get(), [this](auto) {
        eventfd_t count = 0;
        ::eventfd_read(wake_.get(), &count);
    });
    watch.setEvents(EPOLLIN);
    auto end = RelayHost::Time::max();
    while (EventLoop::Clock::now() < end) {
        if (end == RelayHost::Time::max() && !doJobs(host)) {
            end = EventLoop::Clock::now() + LongestEnding;
            host.leave();
        }
        host.tick(EventLoop::Clock::now());
        if (end != RelayHost::Time::max() && !host.hasViewers())
            return;
        loop.turn(std::min(host.nextDeadline(), end));
    }
}

}  // namespace zelvo::platform
