#pragma once

#include "platform/Observable.h"
#include "platform/qt/DesktopApplication.h"
#include "platform/qt/content/BundleTranslator.h"
#include "platform/qt/core/QtMainLoop.h"
#include "platform/qt/core/QuitSignals.h"
#include "platform/qt/dialogs/QtAlerts.h"
#include "platform/qt/dialogs/QtFeedback.h"
#include "platform/qt/programs/QtWorkspace.h"
#include "platform/qt/sharing/QtPasteboard.h"
#include "platform/qt/sharing/QtSharingServicePicker.h"
#include "platform/qt/viewers/Doorkeeper.h"
#include "platform/qt/widgets/ColorScheme.h"
#include "platform/qt/window/QtWindowSystem.h"

namespace zelvo::platform {

class Explanations;
class MainWindow;
class MainWindowModel;
class Preferences;
class TrayIcon;
class ViewerNotifications;
class Viewers;
class WayIn;
struct Notice;

/// The services of the desktop, one of each, named as the members of Platform. Needs a QApplication
/// that outlives it. Main thread only.
class QtDesktop {
  public:
    /// All outlive this object. `logLines` gives the log's last lines.
    QtDesktop(QtMainLoop& loop, const Bundle& bundle, const Explanations& explanations,
              Viewers& viewers, const WayIn& wayIn, const Preferences& preferences,
              std::function<std::vector<std::string>()> logLines);
    ~QtDesktop();

    /// Settings of the process that have to stand before the QApplication is made.
    static void prepareProcess();

    /// Puts the services on the window, with the delegate behind it, until the window is destroyed.
    void attach(MainWindow& window, const MainWindowModel& model, ApplicationDelegate& delegate);

  private:
    BundleTranslator translator_;
    ColorScheme colorScheme_;

  public:
    DesktopApplication application;
    QtAlerts alerts;
    QtWindowSystem windowSystem;
    QtSharingServicePicker sharingServicePicker;
    QtPasteboard pasteboard;
    QtWorkspace workspace;
    QtFeedback feedback;

  private:
    void setWindow(MainWindow* window);
    void say(const Notice& notice);
    void couldNotOpen(const std::string& url);
    void takeNoMoreRequests();
    void watchTheDoor(const MainWindowModel& model);

    MainWindow* window_ = nullptr;
    bool takesRequests_ = true;
    const Bundle& bundle_;
    const Explanations& explanations_;
    Viewers& viewers_;
    const Preferences& preferences_;
    Doorkeeper doorkeeper_;
    std::unique_ptr<ViewerNotifications> notifications_;
    std::unique_ptr<TrayIcon> tray_;
    Subscription quitting_;
    Subscription link_;
    QuitSignals signals_;
};

}  // namespace zelvo::platform
