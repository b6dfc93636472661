#include <chrono>

#include "app/AppDelegate.h"
#include "host/KVSystemInformation.h"

namespace zelvo {

bool AppDelegate::screenSharingConnectionEstablished() const {
    return KVSystemInformation::screenSharingConnectionEstablished(
        platform_.sockets, platform_.services, platform_.log);
}

void AppDelegate::launchWaitingForConnectionTimer() {
    if (stillActiveTimer_ && stillActiveTimer_->isValid())
        stillActiveTimer_.reset();
    replaceTimer(waitingTimer_, &AppDelegate::waitingForConnectionTimer);
}

void AppDelegate::launchConnectionStillActiveTimer() {
    if (waitingTimer_ && waitingTimer_->isValid())
        waitingTimer_.reset();
    replaceTimer(stillActiveTimer_, &AppDelegate::connectionStillActiveTimer);
}

void AppDelegate::replaceTimer(std::unique_ptr<Timer>& timer, void (AppDelegate::*tick)(Timer&)) {
    std::erase_if(leftoverTimers_, [](const auto& leftover) { return !leftover->isValid(); });
    // One that still ticks is not stopped: it stops itself at a tick of its own.
    if (timer && timer->isValid())
        leftoverTimers_.push_back(std::move(timer));
    timer = platform_.runLoop.scheduleTimer(
        std::chrono::seconds(3), [this, tick](Timer& ticking) { (this->*tick)(ticking); });
}

void AppDelegate::waitingForConnectionTimer(Timer& timer) {
    if (screenSharingConnectionEstablished() && timer.isValid()) {
        timer.invalidate();
        setZelvoStatus(ZelvoStatusConnected);
    }
}

void AppDelegate::connectionStillActiveTimer(Timer& timer) {
    if (!screenSharingConnectionEstablished() && timer.isValid()) {
        timer.invalidate();
        setZelvoStatus(ZelvoStatusWaitingForConnection);
    }
}

}  // namespace zelvo
