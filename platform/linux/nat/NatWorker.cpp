#include "platform/linux/nat/NatWorker.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <system_error>

#include "platform/linux/nat/KernelRoutes.h"
#include "platform/linux/nat/RouteMonitor.h"
#include "platform/linux/nat/SleepWatch.h"
#include "platform/linux/nat/base/SocketNetwork.h"

namespace zelvo::platform {

namespace {

using namespace std::chrono_literals;

/// A withdrawal ends after a second by itself; this is for what should not happen.
constexpr auto LongestEnding = 1500ms;

}  // namespace

NatWorker::NatWorker(Log& log, const NatEngine::Options& options)
    : log_(log), wake_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (!wake_) {
        return;
    }
    try {
        thread_ = std::thread([this, options] { run(options); });
    } catch (const std::system_error&) {
        // isRunning tells.
    }
}

NatWorker::~NatWorker() {
    if (!isRunning()) {
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    eventfd_write(wake_.get(), 1);
    thread_.join();
}

void NatWorker::open(int id, const PortWish& wish, PortPairMapping::Reply reply) {
    post([id, wish, reply = std::move(reply)](NatEngine& engine) { engine.open(id, wish, reply); });
}

void NatWorker::close(int id) {
    post([id](NatEngine& engine) { engine.close(id); });
}

void NatWorker::post(Job job) {
    {
        const std::lock_guard lock(mutex_);
        jobs_.push_back(std::move(job));
    }
    eventfd_write(wake_.get(), 1);
}

void NatWorker::run(const NatEngine::Options& options) {
    PollLoop loop;
    SocketNetwork network(loop);
    const KernelRoutes routes;
    NatEngine engine(network, routes, log_, options);
    const RouteMonitor monitor(loop, [&engine] { engine.routesChanged(); });
    const SleepWatch sleepWatch(loop, [&engine] { engine.checkAll(); });
    const auto wake = loop.watch(wake_.get(), POLLIN, [this](short) {
        eventfd_t count = 0;
        eventfd_read(wake_.get(), &count);
    });
    NatTime end = Never;
    while (PollLoop::now() < end) {
        for (const Job& job : takeJobs()) {
            job(engine);
        }
        if (end == Never && [this] {
                const std::lock_guard lock(mutex_);
                return ending_;
            }()) {
            end = PollLoop::now() + LongestEnding;
            engine.closeAll();
        }
        engine.advance();
        if (end != Never && engine.isIdle()) {
            return;
        }
        loop.turn(std::min(engine.nextWake(), end));
    }
}

std::vector<NatWorker::Job> NatWorker::takeJobs() {
    const std::lock_guard lock(mutex_);
    return std::exchange(jobs_, {});
}

}  // namespace zelvo::platform
