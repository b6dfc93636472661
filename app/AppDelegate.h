#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/SystemInformation.h"
#include "host/SystemInformationDelegate.h"
#include "link/LinkManager.h"
#include "platform/ApplicationDelegate.h"
#include "platform/MainWindowModel.h"
#include "platform/Observable.h"
#include "platform/Platform.h"
#include "platform/RunLoop.h"
#include "platform/SharingServicePicker.h"
#include "platform/Window.h"
#include "platform/ZelvoStatus.h"

namespace zelvo {

using platform::ZelvoStatus;
using enum platform::ZelvoStatus;

/// The application controller: launch and quit, the status machine, the watch for a viewer, the
/// privileged tools, and the user's actions. Main thread only.
class AppDelegate : public platform::ApplicationDelegate,
                    public platform::MainWindowModel,
                    public platform::SharingServicePickerDelegate,
                    public SystemInformationDelegate {
  public:
    explicit AppDelegate(const platform::Platform& platform);
    ~AppDelegate() override;
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    // Launch and quit
    void applicationDidFinishLaunching() override;
    void applicationDidBecomeActive() override;
    platform::TerminateReply applicationShouldTerminate() override;
    bool windowShouldClose() override;
    /// Runs the enable tool where Screen Sharing is not fully on.
    void enableScreenSharingServiceIfNeeded();

    // The status machine
    std::int32_t zelvoStatus() const { return zelvoStatus_.value(); }
    /// Stores a new value and runs its entry actions before it returns; the same value does
    /// nothing.
    void setZelvoStatus(std::int32_t status);
    /// Compares the status with the real state of Screen Sharing and moves it forward or back.
    void updateServiceStatus();

    /// Starts a tool of the resources as the superuser. Returns whether it was started;
    /// `completion` gets the same before this returns.
    bool runToolWithPrivileges(const std::string& tool,
                               const std::function<void(bool)>& completion);

    // The user's actions
    void shareLink(platform::Button* sender) override;
    void copyLink() override;
    void makeNewLink() override;
    void changeWay(std::function<void()> change) override;
    void closeConnection() override;
    void startOver() override;
    void showHelp() override;
    void showRouterHelp() override;
    void showFeedbackDialog() override;
    /// The help button of the "Router Error" sheet; true: the request is handled.
    bool alertShowHelp();

    /// The height of a standard window's title bar in points; asked of the platform once.
    double titleBarHeight();

    // Outlets; not owned, to be set before the launch, absent where there is no window.
    platform::Window* window() const { return window_; }
    void setWindow(platform::Window* window) { window_ = window; }
    platform::Button* shareButton() const { return shareButton_; }
    void setShareButton(platform::Button* button) { shareButton_ = button; }
    platform::BackgroundView* containerView() const { return containerView_; }
    void setContainerView(platform::BackgroundView* view) { containerView_ = view; }

    const std::shared_ptr<LinkManager>& linkManager() const { return linkManager_; }
    const SystemInformation* sysInfo() const { return sysInfo_.get(); }
    const platform::Timer* waitingForConnectionTimer() const { return waitingTimer_.get(); }
    const platform::Timer* connectionStillActiveTimer() const { return stillActiveTimer_.get(); }
    /// Whether Screen Sharing was listening at launch.
    bool screenSharingRunningFormerState() const { return screenSharingRunningFormerState_; }

    // What the window shows
    const platform::Observable<std::string>& appIcon() const override { return appIcon_; }
    const platform::Observable<std::string>& versionInfo() const override { return versionInfo_; }
    const platform::Observable<std::string>& portMappingStatusIcon() const override {
        return portMappingStatusIcon_;
    }
    const platform::Observable<std::string>& portMappingStatusText() const override {
        return portMappingStatusText_;
    }
    const platform::Observable<bool>& animatePortMappingSpinner() const override {
        return animatePortMappingSpinner_;
    }
    const platform::Observable<bool>& showPortMappingButton() const override {
        return showPortMappingButton_;
    }
    const platform::Observable<std::string>& sharedLink() const override { return sharedLink_; }
    const platform::Observable<std::string>& waitingForConnectionStatusIcon() const override {
        return waitingForConnectionStatusIcon_;
    }
    const platform::Observable<std::string>& waitingForConnectionStatusText() const override {
        return waitingForConnectionStatusText_;
    }
    const platform::Observable<bool>& animateWaitingForConnectionSpinner() const override {
        return animateWaitingForConnectionSpinner_;
    }
    const platform::Observable<bool>& readyToShare() const override { return readyToShare_; }
    const platform::Observable<std::int32_t>& zelvoStatusProperty() const override {
        return zelvoStatus_;
    }
    const platform::Observable<bool>& isQuitting() const override { return isQuitting_; }

  private:
    using Timer = platform::Timer;

    void cleanUpAndTerminate();
    void askAboutSession();
    void endSessionFor(const char* question, const char* yes, std::function<void()> action);
    void replaceLink();
    void renewWay();
    void registerAgain();
    bool sessionUnderWay() const;
    bool screenSharingFullyOn() const;

    void statusChanged(std::int32_t oldStatus, std::int32_t newStatus);
    void createLink();
    void showPortMappingErrorSheet();
    void showPortMapping(const char* text, const char* icon, bool spinner, bool button);
    void showConnection(const char* text, const char* icon, bool spinner);

    void launchWaitingForConnectionTimer();
    void launchConnectionStillActiveTimer();
    void waitingForConnectionTimer(Timer& timer);
    void connectionStillActiveTimer(Timer& timer);
    void replaceTimer(std::unique_ptr<Timer>& timer, void (AppDelegate::*tick)(Timer&));
    bool screenSharingConnectionEstablished() const;

    std::vector<platform::SharingService> sharingServicesForItems(
        const std::vector<std::string>& items,
        std::vector<platform::SharingService> proposedServices) override;
    void openHelpPage(const char* key);

    void computerNameChanged(const std::string&) override {}
    void computerLocalHostnameChanged(const std::string&) override {}

    std::string text(const char* key) const;
    /// The call, if this controller is still there when it comes.
    template <typename Call>
    auto whileAlive(Call call) {
        return [alive = std::weak_ptr(alive_), call = std::move(call)](auto&&... arguments) {
            if (!alive.expired())
                call(std::forward<decltype(arguments)>(arguments)...);
        };
    }

    const platform::Platform platform_;
    std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);

    platform::Window* window_ = nullptr;
    platform::Button* shareButton_ = nullptr;
    platform::BackgroundView* containerView_ = nullptr;
    std::shared_ptr<LinkManager> linkManager_;
    std::unique_ptr<SystemInformation> sysInfo_;

    std::unique_ptr<Timer> waitingTimer_;
    std::unique_ptr<Timer> stillActiveTimer_;
    /// Timers that were replaced while they ticked; each stops itself.
    std::vector<std::unique_ptr<Timer>> leftoverTimers_;
    std::unique_ptr<platform::Perform> enableLater_;
    std::vector<std::unique_ptr<platform::Perform>> queuedEvaluations_;

    platform::Observable<std::string> appIcon_;
    platform::Observable<std::string> versionInfo_;
    platform::Observable<std::string> portMappingStatusIcon_;
    platform::Observable<std::string> portMappingStatusText_;
    platform::Observable<bool> animatePortMappingSpinner_;
    platform::Observable<bool> showPortMappingButton_;
    platform::Observable<std::string> sharedLink_;
    platform::Observable<std::string> waitingForConnectionStatusIcon_;
    platform::Observable<std::string> waitingForConnectionStatusText_;
    platform::Observable<bool> animateWaitingForConnectionSpinner_;
    platform::Observable<bool> readyToShare_;
    platform::Observable<std::int32_t> zelvoStatus_{ZelvoStatusIdle};
    platform::Observable<bool> isQuitting_;
    bool screenSharingRunningFormerState_ = false;
    bool renewsWay_ = false;
    double titleBarHeight_ = 0;
};

}  // namespace zelvo
