#include <utility>

#include "app/AppDelegate.h"
#include "host/KVSystemInformation.h"
#include "platform/Alerts.h"
#include "platform/Application.h"

namespace zelvo {

void AppDelegate::setZelvoStatus(std::int32_t status) {
    const auto oldStatus = zelvoStatus();
    if (status == oldStatus)
        return;
    zelvoStatus_.set(status);
    statusChanged(oldStatus, status);
}

void AppDelegate::statusChanged(std::int32_t, std::int32_t newStatus) {
    switch (newStatus) {
        case ZelvoStatusIdle:
        case ZelvoStatusServiceDisabled:
            showPortMapping("Applying Port Mapping...", "NSStatusNone", true, false);
            linkManager_->invalidateLink(nullptr);
            break;
        case ZelvoStatusServiceEnabled:
            createLink();
            setZelvoStatus(ZelvoStatusMappingPort);
            break;
        case ZelvoStatusMappingPort:
            showPortMapping("Applying Port Mapping...", "NSStatusNone", true, false);
            break;
        case ZelvoStatusMappingFailed:
            showPortMapping("Port Mapping Error:", "NSStatusUnavailable", false, true);
            showPortMappingErrorSheet();
            break;
        case ZelvoStatusMappingSucceeded:
            showPortMapping("Port Mapping Successful.", "NSStatusAvailable", false, false);
            setZelvoStatus(ZelvoStatusWaitingForConnection);
            if (window_ && shareButton_)
                window_->makeFirstResponder(*shareButton_);
            break;
        case ZelvoStatusWaitingForConnection:
            readyToShare_.set(true);
            showConnection("Waiting for connection...", "NSStatusNone", true);
            launchWaitingForConnectionTimer();
            break;
        case ZelvoStatusConnected:
            showConnection("Connection established.", "NSStatusAvailable", false);
            launchConnectionStillActiveTimer();
            break;
        default:
            break;
    }
    updateServiceStatus();
}

void AppDelegate::createLink() {
    linkManager_->createSharedLinkWithInternalPort(
        sysInfo_->vncListeningPort(),
        whileAlive([this](const std::optional<std::string>& address, std::int64_t,
                          const std::optional<std::string>& link) {
            if (std::exchange(renewsWay_, false)) {
                setZelvoStatus(ZelvoStatusServiceEnabled);
                return;
            }
            // Why there is no link makes no difference: both failures end in the same sheet.
            if (!address) {
                setZelvoStatus(ZelvoStatusMappingFailed);
                return;
            }
            setZelvoStatus(ZelvoStatusMappingSucceeded);
            sharedLink_.set(link.value_or(""));
        }));
}

void AppDelegate::updateServiceStatus() {
    // Passes are started from several places, each of which may have queued a run.
    queuedEvaluations_.clear();
    const bool running = KVSystemInformation::isScreenSharingRunning(
        platform_.sockets, platform_.services, platform_.log);
    const bool asks = KVSystemInformation::isScreenSharingReqPermEnabled(platform_.propertyLists);
    appIcon_.set(zelvoStatus() > ZelvoStatusMappingSucceeded ? "AppIcon-Enabled"
                                                             : "AppIcon-Disabled");
    if (running && asks) {
        if (zelvoStatus() == ZelvoStatusIdle || zelvoStatus() == ZelvoStatusServiceDisabled)
            setZelvoStatus(ZelvoStatusServiceEnabled);
        return;
    }
    setZelvoStatus(ZelvoStatusServiceDisabled);
    showPortMapping("Applying Port Mapping...", "NSStatusNone", true, true);
    queuedEvaluations_.push_back(
        platform_.runLoop.performOnNextTurn([this] { updateServiceStatus(); }));
}

void AppDelegate::showPortMapping(const char* key, const char* icon, bool spinner, bool button) {
    portMappingStatusText_.set(text(key));
    portMappingStatusIcon_.set(icon);
    animatePortMappingSpinner_.set(spinner);
    showPortMappingButton_.set(button);
}

void AppDelegate::showConnection(const char* key, const char* icon, bool spinner) {
    waitingForConnectionStatusIcon_.set(icon);
    waitingForConnectionStatusText_.set(text(key));
    animateWaitingForConnectionSpinner_.set(spinner);
}

void AppDelegate::showPortMappingErrorSheet() {
    platform::Alert alert;
    alert.kind = platform::AlertKind::NoLink;
    alert.messageText = text("Router Error");
    alert.informativeText = text("Router Error Description");
    alert.icon = "NSCaution";
    alert.buttonTitles = {text("Try Again"), text("Quit")};
    alert.showsHelp = true;
    alert.showHelp = [this] { return alertShowHelp(); };
    platform_.alerts.beginSheet(std::move(alert), whileAlive([this](int response) {
                                    if (response == platform::AlertFirstButtonReturn)
                                        setZelvoStatus(ZelvoStatusServiceEnabled);
                                    else
                                        platform_.application.terminate();
                                }));
}

}  // namespace zelvo
