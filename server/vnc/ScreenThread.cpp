#include "server/vnc/ScreenThread.h"

#include <sys/epoll.h>

#include <utility>

namespace zelvo::server {

using platform::EventLoop;

ScreenThread::ScreenThread(Open open, std::string name, Handlers handlers)
    : open_(std::move(open)),
      name_(std::move(name)),
      handlers_(std::move(handlers)),
      thread_([this] { run(); }) {}

ScreenThread::~ScreenThread() {
    isEnding_ = true;
    tasks_.post([](VncServer&) {});
    thread_.join();
}

void ScreenThread::admit(ViewerId viewer, platform::FileDescriptor socket,
                         platform::gate::Rights rights) {
    // What a std::function holds has to be copyable.
    auto shared = std::make_shared<platform::FileDescriptor>(std::move(socket));
    tasks_.post([=](VncServer& vnc) { vnc.admit(viewer, std::move(*shared), rights); });
}

void ScreenThread::setRights(ViewerId viewer, platform::gate::Rights rights) {
    tasks_.post([=](VncServer& vnc) { vnc.setRights(viewer, rights); });
}

void ScreenThread::setInputPasses(bool passes) {
    // Not behind what keeps the thread busy, for that a viewer can prolong.
    inputPasses_ = passes;
    if (!passes)
        tasks_.post([](VncServer& vnc) { vnc.releaseInput(); });
}

std::unique_ptr<Screen> ScreenThread::open(EventLoop& loop) {
    const auto opening = open_();
    auto result = opening->proceed();
    bool asks = false;
    while (!result && !isEnding_) {
        EventLoop::Watch watch(loop, opening->descriptor(),
                               [&](auto) { result = opening->proceed(); });
        watch.setEvents(EPOLLIN);
        if (opening->asksUser() && !std::exchange(asks, true))
            handlers_.asksUser();
        loop.turn(EventLoop::Clock::time_point::max());
    }
    if (!result)
        return nullptr;
    handlers_.opened(*result);
    return std::move(result->screen);
}

void ScreenThread::run() {
    EventLoop loop;
    EventLoop::Watch watch(loop, tasks_.descriptor(), [](auto) {});
    watch.setEvents(EPOLLIN);
    const auto screen = open(loop);
    if (!screen)
        return;
    VncServer vnc(loop, *screen, name_, inputPasses_, handlers_.ended);
    while (!isEnding_) {
        for (const auto& task : tasks_.take())
            task(vnc);
        vnc.tick(EventLoop::Clock::now());
        loop.turn(vnc.nextDeadline());
    }
}

}  // namespace zelvo::server
