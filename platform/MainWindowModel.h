#pragma once

#include <cstdint>
#include <string>

#include "platform/Observable.h"

namespace zelvo::platform {

class Button;

/// What a front end shows, and what it may ask for. Front ends observe the properties, which hold
/// localised texts and names of images, and send the actions; they hold no logic. Main thread only.
class MainWindowModel {
  public:
    virtual ~MainWindowModel() = default;

    /// State image: "AppIcon-Enabled" while waiting for or serving a viewer, else
    /// "AppIcon-Disabled".
    virtual Observable<std::string>& appIcon() = 0;
    virtual Observable<std::string>& versionInfo() = 0;
    /// "NSStatusNone", "NSStatusAvailable" or "NSStatusUnavailable"; empty before the first one.
    virtual Observable<std::string>& portMappingStatusIcon() = 0;
    virtual Observable<std::string>& portMappingStatusText() = 0;
    virtual Observable<bool>& animatePortMappingSpinner() = 0;
    virtual Observable<bool>& showPortMappingButton() = 0;
    /// The shareable link; empty while there has been none.
    virtual Observable<std::string>& sharedLink() = 0;
    virtual Observable<std::string>& waitingForConnectionStatusIcon() = 0;
    virtual Observable<std::string>& waitingForConnectionStatusText() = 0;
    virtual Observable<bool>& animateWaitingForConnectionSpinner() = 0;
    virtual Observable<bool>& readyToShare() = 0;
    /// ZelvoStatus, 0 to 7: 1 Screen Sharing off, 2 on, 3 mapping, 4 failed, 5 succeeded, 6 waiting
    /// for a viewer, 7 viewer connected. Observers hear of it before the entry actions run.
    virtual Observable<std::int32_t>& zelvoStatusProperty() = 0;

    /// The application has decided to quit and only takes back what it set up: nothing is asked of
    /// the user any more, and no action taken.
    virtual Observable<bool>& isQuitting() = 0;

    /// Shows the sharing menu at the sender. Nothing without a link.
    virtual void shareLink(Button* sender) = 0;
    /// Puts the link on the pasteboard. Nothing without a link.
    virtual void copyLink() = 0;
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
