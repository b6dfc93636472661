#pragma once

#include "platform/Observable.h"
#include "platform/qt/BundleTranslator.h"
#include "platform/qt/DesktopApplication.h"
#include "platform/qt/core/QtMainLoop.h"
#include "platform/qt/core/QtWorkspace.h"
#include "platform/qt/core/QuitSignals.h"
#include "platform/qt/dialogs/QtAlerts.h"
#include "platform/qt/dialogs/QtFeedback.h"
#include "platform/qt/sharing/QtPasteboard.h"
#include "platform/qt/sharing/QtSharingServicePicker.h"
#include "platform/qt/widgets/ColorScheme.h"
#include "platform/qt/window/QtWindowSystem.h"

namespace zelvo::platform {

class Explanations;
class MainWindowModel;

/// The services of the desktop, one of each, named as the members of Platform. Needs a QApplication
/// that outlives it. Main thread only.
class QtDesktop {
  public:
    /// All outlive this object. `logLines` gives the log's last lines.
    QtDesktop(QtMainLoop& loop, const Bundle& bundle, const Explanations& explanations,
              std::function<std::vector<std::string>()> logLines);

    /// Settings of the process that have to stand before the QApplication is made.
    static void prepareProcess();

    /// Puts the services on the window, with the delegate behind it, until the window is destroyed.
    void attach(QWidget& window, const MainWindowModel& model, ApplicationDelegate& delegate);

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
    void setWindow(QWidget* window);
    void takeNoMoreRequests();

    QWidget* window_ = nullptr;
    Subscription quitting_;
    QuitSignals signals_;
};

}  // namespace zelvo::platform
