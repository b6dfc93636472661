#include "relay/Member.h"

#include <event2/event.h>

#include <utility>

#include "relay/RelayLoop.h"

namespace zelvo::relay {

Member::Member(RelayLoop& loop) : loop_(loop) {
    event_assign(
        &timer_, loop.thread().base(), -1, EV_TIMEOUT,
        [](int, short, void* self) { static_cast<Member*>(self)->onTime(); }, this);
}

Member::~Member() {
    stopTimer();
}

void Member::startTimer(std::chrono::milliseconds after) {
    loop_.thread().startTimer(timer_, after);
}

void Member::stopTimer() {
    event_del(&timer_);
}

void Member::retire() {
    if (std::exchange(isRetired_, true))
        return;
    stopTimer();
    letGo();
    loop_.bury(*this);
}

}  // namespace zelvo::relay
