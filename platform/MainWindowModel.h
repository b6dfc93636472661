#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "platform/Observable.h"
#include "platform/ZelvoStatus.h"

namespace zelvo::platform {

class Button;

/// What a front end shows, and what it may ask for. Front ends observe the properties, which hold
/// localised texts and names of images, and send the actions; they hold no logic. Main thread only.
class MainWindowModel {
  public:
    virtual ~MainWindowModel() = default;

    /// State image: "AppIcon-Enabled" while waiting for or serving a viewer, else
    /// "AppIcon-Disabled".
    virtual const Observable<std::string>& appIcon() const = 0;
    virtual const Observable<std::string>& versionInfo() const = 0;
    /// "NSStatusNone", "NSStatusAvailable" or "NSStatusUnavailable"; empty before the first one.
    virtual const Observable<std::string>& portMappingStatusIcon() const = 0;
    virtual const Observable<std::string>& portMappingStatusText() const = 0;
    virtual const Observable<bool>& animatePortMappingSpinner() const = 0;
    virtual const Observable<bool>& showPortMappingButton() const = 0;
    /// The shareable link; empty while there has been none, and while another one is made.
    virtual const Observable<std::string>& sharedLink() const = 0;
    virtual const Observable<std::string>& waitingForConnectionStatusIcon() const = 0;
    virtual const Observable<std::string>& waitingForConnectionStatusText() const = 0;
    virtual const Observable<bool>& animateWaitingForConnectionSpinner() const = 0;
    virtual const Observable<bool>& readyToShare() const = 0;
    /// A ZelvoStatus. Observers hear of it before the entry actions run.
    virtual const Observable<std::int32_t>& zelvoStatusProperty() const = 0;

    /// The application has decided to quit and only takes back what it set up: nothing is asked of
    /// the user any more, and no action taken.
    virtual const Observable<bool>& isQuitting() const = 0;

    /// Shows the sharing menu at the sender. Nothing without a link.
    virtual void shareLink(Button* sender) = 0;
    /// Puts the link on the pasteboard. Nothing without a link.
    virtual void copyLink() = 0;
    /// Ends the link and makes another; where somebody is connected, asks first and disconnects
    /// them. Nothing below status 6.
    virtual void makeNewLink() = 0;
    /// Calls `change`, and then makes the way to this computer anew where there is one or one is
    /// being made; a link that is kept over launches stays the same. Where somebody is connected,
    /// asks first and disconnects them, or does neither. `change` is called at most once, now or
    /// later.
    virtual void changeWay(std::function<void()> change) = 0;
    /// Ends the viewer's connection; nothing below status 2.
    virtual void closeConnection() = 0;
    /// The port-mapping row's button: tries the link again in status 4, switches Screen Sharing on
    /// below status 2.
    virtual void startOver() = 0;
    virtual void showHelp() = 0;
    virtual void showRouterHelp() = 0;
    virtual void showFeedbackDialog() = 0;
};

}  // namespace zelvo::platform
