#include "server/vnc/ScreenThread.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <utility>

namespace zelvo::server {

ScreenThread::ScreenThread(std::unique_ptr<Screen> screen, std::string name,
                           std::function<void()> ended)
    : screen_(std::move(screen)),
      name_(std::move(name)),
      ended_(std::move(ended)),
      wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      thread_([this] { run(); }) {}

ScreenThread::~ScreenThread() {
    {
        std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    ::eventfd_write(wake_.get(), 1);
    thread_.join();
}

void ScreenThread::post(Task task) {
    {
        std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    ::eventfd_write(wake_.get(), 1);
}

void ScreenThread::admit(ViewerId viewer, platform::FileDescriptor socket,
                         platform::gate::Rights rights) {
    // What a std::function holds has to be copyable.
    auto shared = std::make_shared<platform::FileDescriptor>(std::move(socket));
    post([=](VncServer& vnc) { vnc.admit(viewer, std::move(*shared), rights); });
}

void ScreenThread::setRights(ViewerId viewer, platform::gate::Rights rights) {
    post([=](VncServer& vnc) { vnc.setRights(viewer, rights); });
}

void ScreenThread::setInputPasses(bool passes) {
    // Not behind what keeps the thread busy, for that a viewer can prolong.
    inputPasses_ = passes;
    if (!passes)
        post([](VncServer& vnc) { vnc.releaseInput(); });
}

void ScreenThread::run() {
    platform::EventLoop loop;
    VncServer vnc(loop, *screen_, name_, inputPasses_, ended_);
    platform::EventLoop::Watch watch(loop, wake_.get(), [this](auto) {
        eventfd_t count = 0;
        ::eventfd_read(wake_.get(), &count);
    });
    watch.setEvents(EPOLLIN);
    while (true) {
        std::vector<Task> tasks;
        {
            std::lock_guard lock(mutex_);
            if (isEnding_)
                return;
            tasks.swap(tasks_);
        }
        for (const auto& task : tasks)
            task(vnc);
        vnc.tick(platform::EventLoop::Clock::now());
        loop.turn(vnc.nextDeadline());
    }
}

}  // namespace zelvo::server
