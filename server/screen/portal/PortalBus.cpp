#include "server/screen/portal/PortalBus.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace zelvo::server {

using platform::EventLoop;

struct PortalBus::Handler {
    Signal call;

    /// For slots that own it.
    static void destroy(void* handler) { delete static_cast<Handler*>(handler); }
    static int run(sd_bus_message* message, void* handler, sd_bus_error*) {
        static_cast<Handler*>(handler)->call(message);
        return 0;
    }
};

PortalBus::PortalBus(EventLoop& loop, std::function<void()> ended)
    : ended_(std::move(ended)),
      timer_(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
    if (sd_bus_open_user(&bus_) < 0) {
        bus_ = nullptr;
        return;
    }
    busWatch_ =
        std::make_unique<EventLoop::Watch>(loop, sd_bus_get_fd(bus_), [this](auto) { process(); });
    timerWatch_ =
        std::make_unique<EventLoop::Watch>(loop, timer_.get(), [this](auto) { process(); });
    timerWatch_->setEvents(EPOLLIN);
    arm();
}

PortalBus::~PortalBus() {
    // Flushing waits for a bus that has not answered yet.
    if (sd_bus_is_ready(bus_) > 0)
        sd_bus_flush(bus_);
    sd_bus_close_unref(bus_);
}

std::string PortalBus::senderInPaths() const {
    const char* name = nullptr;
    if (sd_bus_get_unique_name(bus_, &name) < 0 || !name)
        return {};
    std::string sender = name + 1;
    std::replace(sender.begin(), sender.end(), '.', '_');
    return sender;
}

void PortalBus::process() {
    int result = 0;
    do
        result = sd_bus_process(bus_, nullptr);
    while (result > 0);
    if (result < 0) {
        busWatch_->setEvents(0);
        timerWatch_->setEvents(0);
        return ended_();
    }
    arm();
}

/// The library wakes up by its descriptor, and where calls have taken too long.
void PortalBus::arm() {
    const int events = sd_bus_get_events(bus_);
    busWatch_->setEvents(events > 0 && (events & POLLOUT) ? EPOLLIN | EPOLLOUT : EPOLLIN);
    std::uint64_t microseconds = 0;
    itimerspec time{};
    if (sd_bus_get_timeout(bus_, &microseconds) > 0 && microseconds != UINT64_MAX) {
        time.it_value.tv_sec = static_cast<time_t>(microseconds / 1'000'000);
        time.it_value.tv_nsec = static_cast<long>(microseconds % 1'000'000 * 1'000);
        // All zeros would mean never.
        if (microseconds == 0)
            time.it_value.tv_nsec = 1;
    }
    ::timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &time, nullptr);
}

void PortalBus::call(const char* objectPath, const char* interface, const char* method,
                     const Arguments& arguments, Reply reply) {
    sd_bus_message* message = nullptr;
    if (sd_bus_message_new_method_call(bus_, &message, service, objectPath, interface, method) < 0)
        return;
    arguments(message);
    auto* handler = new Handler{[reply = std::move(reply)](sd_bus_message* answer) {
        reply(sd_bus_message_is_method_error(answer, nullptr) ? nullptr : answer);
    }};
    sd_bus_slot* slot = nullptr;
    if (sd_bus_call_async(bus_, &slot, message, Handler::run, handler, 0) < 0) {
        Handler::destroy(handler);
    } else {
        sd_bus_slot_set_destroy_callback(slot, Handler::destroy);
        // Lives until the reply, or as long as the bus.
        sd_bus_slot_set_floating(slot, 1);
        sd_bus_slot_unref(slot);
    }
    sd_bus_message_unref(message);
    arm();
}

void PortalBus::tell(const char* objectPath, const char* interface, const char* method,
                     const Arguments& arguments) {
    sd_bus_message* message = nullptr;
    if (sd_bus_message_new_method_call(bus_, &message, service, objectPath, interface, method) < 0)
        return;
    arguments(message);
    sd_bus_message_set_expect_reply(message, 0);
    sd_bus_send(bus_, message, nullptr);
    sd_bus_message_unref(message);
    arm();
}

void PortalBus::match(const std::string& rule, Signal signal) {
    auto* handler = new Handler{std::move(signal)};
    sd_bus_slot* slot = nullptr;
    if (sd_bus_add_match_async(bus_, &slot, rule.c_str(), Handler::run, nullptr, handler) < 0)
        return Handler::destroy(handler);
    sd_bus_slot_set_destroy_callback(slot, Handler::destroy);
    sd_bus_slot_set_floating(slot, 1);
    sd_bus_slot_unref(slot);
}

void PortalBus::subscribe(const char* interface, const char* member, Signal signal) {
    match(std::string("type='signal',sender='") + service + "',interface='" + interface +
              "',member='" + member + "'",
          std::move(signal));
}

void PortalBus::whenServiceEnds(std::function<void()> ended) {
    match(std::string("type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',"
                      "arg0='") +
              service + "'",
          [ended = std::move(ended)](sd_bus_message* message) {
              const char* name = nullptr;
              const char* before = nullptr;
              const char* now = nullptr;
              if (sd_bus_message_read(message, "sss", &name, &before, &now) > 0 && *before)
                  ended();
          });
}

void openDictionary(sd_bus_message* message) {
    sd_bus_message_open_container(message, 'a', "{sv}");
}

void closeDictionary(sd_bus_message* message) {
    sd_bus_message_close_container(message);
}

void addEntry(sd_bus_message* message, const char* key, std::uint32_t value) {
    sd_bus_message_append(message, "{sv}", key, "u", value);
}

void addEntry(sd_bus_message* message, const char* key, bool value) {
    sd_bus_message_append(message, "{sv}", key, "b", value ? 1 : 0);
}

void addEntry(sd_bus_message* message, const char* key, const std::string& value) {
    sd_bus_message_append(message, "{sv}", key, "s", value.c_str());
}

void readDictionary(
    sd_bus_message* message,
    const std::function<bool(const std::string& key, const std::string& signature)>& entry) {
    if (sd_bus_message_enter_container(message, 'a', "{sv}") <= 0)
        return;
    while (sd_bus_message_enter_container(message, 'e', "sv") > 0) {
        const char* key = nullptr;
        const char* signature = nullptr;
        char type = 0;
        if (sd_bus_message_read_basic(message, 's', &key) <= 0 ||
            sd_bus_message_peek_type(message, &type, &signature) <= 0)
            return;
        if (!entry(key, signature ? signature : ""))
            sd_bus_message_skip(message, "v");
        if (sd_bus_message_exit_container(message) < 0)
            return;
    }
    sd_bus_message_exit_container(message);
}

}  // namespace zelvo::server
