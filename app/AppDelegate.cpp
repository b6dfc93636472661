#include "app/AppDelegate.h"

#include <chrono>

#include "app/Tools.h"
#include "host/KVSystemInformation.h"
#include "platform/Alerts.h"
#include "platform/Application.h"
#include "platform/Bundle.h"
#include "platform/Feedback.h"

namespace zelvo {

AppDelegate::AppDelegate(const platform::Platform& platform) : platform_(platform) {}

AppDelegate::~AppDelegate() {
    // A completion that waits for the router would keep the manager, and with it the mapping, for
    // ever.
    if (linkManager_)
        linkManager_->abandonPendingMapping();
}

void AppDelegate::applicationDidFinishLaunching() {
    platform_.feedback.sendTrackingReport();
    platform_.feedback.setupIssuesController(true);
    constexpr double grey = 127.0 / 255.0;
    if (containerView_)
        containerView_->setBackgroundColor({grey, grey, grey, 0.1});
    auto version = text("Version Info");
    if (auto at = version.find("%@"); at != std::string::npos)
        version.replace(at, 2, platform_.bundle.shortVersionString());
    versionInfo_.set(version);
    sysInfo_ = std::make_unique<SystemInformation>(platform_, this);
    linkManager_ = std::make_shared<LinkManager>(platform_);
    if (shareButton_)
        shareButton_->sendActionOn(platform::EventMask::LeftMouseDown);
    screenSharingRunningFormerState_ = KVSystemInformation::isScreenSharingRunning(
        platform_.sockets, platform_.services, platform_.log);
    setZelvoStatus(ZelvoStatusIdle);
    updateServiceStatus();
    enableLater_ = platform_.runLoop.performAfterDelay(
        std::chrono::milliseconds(500), [this] { enableScreenSharingServiceIfNeeded(); });
}

void AppDelegate::applicationDidBecomeActive() {
    // The window may come to the front before the launch has made what an evaluation needs.
    if (linkManager_)
        updateServiceStatus();
}

bool AppDelegate::screenSharingFullyOn() const {
    return KVSystemInformation::isScreenSharingRunning(platform_.sockets, platform_.services,
                                                       platform_.log) &&
           KVSystemInformation::isScreenSharingReqPermEnabled(platform_.propertyLists);
}

void AppDelegate::enableScreenSharingServiceIfNeeded() {
    if (screenSharingFullyOn())
        return;
    runToolWithPrivileges(EnableScreenSharingTool, [this](bool started) {
        if (started) {
            updateServiceStatus();
            return;
        }
        platform::Alert alert;
        alert.kind = platform::AlertKind::ScreenSharingIsOff;
        alert.messageText = text("Cannot activate require service");
        alert.informativeText =
            text("Zelvo requires Screen Sharing to be activated. Would you like to try again?");
        alert.icon = "NSCaution";
        alert.buttonTitles = {text("Try Again"), text("Quit")};
        platform_.alerts.beginSheet(std::move(alert), whileAlive([this](int response) {
                                        if (response == platform::AlertSecondButtonReturn)
                                            platform_.application.terminate();
                                        else
                                            enableScreenSharingServiceIfNeeded();
                                    }));
    });
}

platform::TerminateReply AppDelegate::applicationShouldTerminate() {
    if (sessionUnderWay())
        askAboutSession();
    else
        cleanUpAndTerminate();
    return platform::TerminateReply::Later;
}

bool AppDelegate::sessionUnderWay() const {
    return screenSharingConnectionEstablished() &&
           KVSystemInformation::processList(platform_.processes).count("screensharingd") > 0;
}

void AppDelegate::askAboutSession() {
    platform::Alert alert;
    alert.kind = platform::AlertKind::SessionUnderWay;
    alert.messageText = text("Screen Sharing Session Undergoing");
    alert.informativeText = text(
        "There is a Screen Sharing session undergoing. Quitting the app will close that "
        "connection. Do you wish to continue?");
    alert.icon = "NSCaution";
    alert.buttonTitles = {text("Yes"), text("No")};
    platform_.alerts.beginSheet(
        std::move(alert), whileAlive([this](int response) {
            if (response != platform::AlertSecondButtonReturn &&
                runToolWithPrivileges(DisconnectScreenSharingTool, [](bool) {}))
                cleanUpAndTerminate();
            else
                platform_.application.replyToApplicationShouldTerminate(false);
        }));
}

void AppDelegate::cleanUpAndTerminate() {
    isQuitting_.set(true);
    if (!screenSharingRunningFormerState_ && zelvoStatus() >= ZelvoStatusServiceEnabled)
        runToolWithPrivileges(DisableScreenSharingTool, [](bool) {});
    auto finish =
        whileAlive([this] { platform_.application.replyToApplicationShouldTerminate(true); });
    if (linkManager_)
        linkManager_->invalidateLink(std::move(finish));
    else
        finish();
}

bool AppDelegate::windowShouldClose() {
    platform_.application.terminate();
    return false;
}

double AppDelegate::titleBarHeight() {
    if (titleBarHeight_ == 0)
        titleBarHeight_ =
            100 - platform_.windowSystem
                      .contentRectForFrameRect({0, 0, 100, 100}, platform::WindowStyle::Titled)
                      .height;
    return titleBarHeight_;
}

std::string AppDelegate::text(const char* key) const {
    return platform_.bundle.localizedString(key);
}

}  // namespace zelvo
