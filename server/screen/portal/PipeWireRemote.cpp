#include "server/screen/portal/PipeWireRemote.h"

#include <sys/epoll.h>

#include <utility>

namespace zelvo::server {

namespace {

pw_loop* newPipeWireLoop() {
    pw_init(nullptr, nullptr);
    auto* loop = pw_loop_new(nullptr);
    // For good: what PipeWire's own thread has for us it does there itself in between.
    pw_loop_enter(loop);
    return loop;
}

const pw_core_events& coreEvents() {
    static const pw_core_events events = [] {
        pw_core_events result{};
        result.version = PW_VERSION_CORE_EVENTS;
        result.error = [](void* ended, std::uint32_t id, int, int error, const char*) {
            if (id == PW_ID_CORE && error == -EPIPE)
                (*static_cast<const std::function<void()>*>(ended))();
        };
        return result;
    }();
    return events;
}

}  // namespace

PipeWireRemote::PipeWireRemote(platform::EventLoop& loop, platform::FileDescriptor socket,
                               std::function<void()> ended)
    : ended_(std::move(ended)),
      loop_(newPipeWireLoop()),
      watch_(loop, pw_loop_get_fd(loop_), [this](auto) { pw_loop_iterate(loop_, 0); }) {
    context_ = pw_context_new(loop_, nullptr, 0);
    if (context_)
        core_ = pw_context_connect_fd(context_, socket.release(), nullptr, 0);
    if (!core_)
        return;
    pw_core_add_listener(core_, &listener_, &coreEvents(),
                         const_cast<std::function<void()>*>(&ended_));
    watch_.setEvents(EPOLLIN);
}

PipeWireRemote::~PipeWireRemote() {
    watch_.setEvents(0);
    if (core_) {
        spa_hook_remove(&listener_);
        pw_core_disconnect(core_);
    }
    if (context_)
        pw_context_destroy(context_);
    pw_loop_leave(loop_);
    pw_loop_destroy(loop_);
}

}  // namespace zelvo::server
