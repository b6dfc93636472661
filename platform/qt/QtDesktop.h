#pragma once

#include "platform/Observable.h"
#include "platform/qt/BundleTranslator.h"
#include "platform/qt/ColorScheme.h"
#include "platform/qt/DesktopApplication.h"
#include "platform/qt/QtAlerts.h"
#include "platform/qt/QtFeedback.h"
#include "platform/qt/QtMainLoop.h"
#include "platform/qt/QtPasteboard.h"
#include "platform/qt/QtSharingServicePicker.h"
#include "platform/qt/QtWindowSystem.h"
#include "platform/qt/QtWorkspace.h"
#include "platform/qt/QuitSignals.h"

namespace zelvo::platform {

class Explanations;
class MainWindowModel;

/// The services of the desktop, one of each, named as the members of Platform. Needs a QApplication
/// that outlives it. Main thread only.
class QtDesktop {
  public:
    /// All outlive this object. `logLines` gives the log's last lines.
    QtDesktop(QtMainLoop& loop, const Bundle& bundle, Explanations& explanations,
              std::function<std::vector<std::string>()> logLines);

    /// Settings of the process that have to stand before the QApplication is made.
    static void prepareProcess();

    /// Puts the services on the window, with the delegate behind it, until the window is destroyed.
    void attach(QWidget& window, MainWindowModel& model, ApplicationDelegate& delegate);

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
