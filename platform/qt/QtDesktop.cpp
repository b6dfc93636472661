#include "platform/qt/QtDesktop.h"

#include <QApplication>
#include <QDialog>
#include <QUrl>

#include "platform/Bundle.h"
#include "platform/MainWindowModel.h"
#include "platform/qt/content/Redaction.h"
#include "platform/qt/content/Sheets.h"
#include "platform/qt/dialogs/Dialogs.h"
#include "platform/qt/dialogs/HelpDialog.h"
#include "platform/qt/sharing/SharingServices.h"
#include "platform/qt/viewers/TrayIcon.h"
#include "platform/qt/viewers/ViewerNotifications.h"
#include "platform/qt/widgets/NoticeLine.h"
#include "platform/qt/window/MainWindow.h"

namespace zelvo::platform {

QtDesktop::QtDesktop(QtMainLoop& loop, const Bundle& bundle, const Explanations& explanations,
                     Viewers& viewers, const WayIn& wayIn, const Preferences& preferences,
                     std::function<std::vector<std::string>()> logLines)
    : translator_(bundle),
      alerts(loop, bundle, explanations),
      sharingServicePicker(loop, bundle,
                           [this, &wayIn, &bundle](const auto& items) {
                               return desktopSharingServices(
                                   items, wayIn, bundle, workspace, window_,
                                   [this](const auto& notice) { say(notice); });
                           }),
      pasteboard([this] { say(Copied); }),
      workspace([this](const std::string& url) { couldNotOpen(url); }),
      feedback([&bundle, logLines = std::move(logLines)] {
          return describeSystem(bundle.shortVersionString(), logLines());
      }),
      bundle_(bundle),
      explanations_(explanations),
      viewers_(viewers),
      preferences_(preferences),
      doorkeeper_(viewers, bundle),
      signals_([this] { application.terminateFromOutside(); }) {
    application.setBeforeQuit([this, &loop] {
        loop.takeTurnNow();
        alerts.dismiss();
    });
    application.setSessionAnswer(
        [this] { alerts.answer(AlertKind::SessionUnderWay, AlertFirstButtonReturn); });
}

QtDesktop::~QtDesktop() = default;

void QtDesktop::prepareProcess() {
    // Nothing here is drawn by OpenGL, and its drivers cost more than the rest of the application.
    if (qEnvironmentVariableIsEmpty("QT_XCB_GL_INTEGRATION"))
        qputenv("QT_XCB_GL_INTEGRATION", "none");
    QCoreApplication::setApplicationName("zelvo");
}

void QtDesktop::attach(MainWindow& window, const MainWindowModel& model,
                       ApplicationDelegate& delegate) {
    application.setDelegate(&delegate);
    quitting_ = model.isQuitting().subscribe([this](bool quits) {
        if (quits)
            takeNoMoreRequests();
    });
    link_ = model.sharedLink().subscribe([](const auto&) {
        if (auto* code = findDialog("qrCodeDialog"))
            code->close();
    });
    setWindow(&window);
    window.setShowQuestion([this] { doorkeeper_.showQuestion(); });
    watchTheDoor(model);
    QObject::connect(&window, &QObject::destroyed, &translator_, [this] {
        application.setDelegate(nullptr);
        quitting_ = {};
        link_ = {};
        tray_.reset();
        notifications_.reset();
        setWindow(nullptr);
    });
}

void QtDesktop::watchTheDoor(const MainWindowModel& model) {
    auto icon = QString::fromStdString(bundle_.resourcePath()) + "/zelvo.svg";
    auto bus = QDBusConnection::sessionBus();
    notifications_ = std::make_unique<ViewerNotifications>(
        viewers_, icon, bus,
        ViewerNotifications::Listener{[this] { doorkeeper_.showQuestion(); },
                                      [this](auto viewer) { doorkeeper_.refuse(viewer); }});
    tray_ = std::make_unique<TrayIcon>(
        TrayIcon::Surroundings{model, viewers_, explanations_, bundle_, preferences_}, bus,
        TrayIcon::Listener{[this] { window_->disconnectEverybody(); },
                           [this] {
                               if (window_->isMinimized())
                                   window_->showNormal();
                               application.activateIgnoringOtherApps(true);
                           },
                           [this] { application.terminate(); }});
}

// An answer or a choice that is still open could make a link anew behind the quit's back.
void QtDesktop::takeNoMoreRequests() {
    alerts.end();
    takesRequests_ = false;
    doorkeeper_.end();
    if (notifications_)
        notifications_->end();
    if (window_)
        closeDialogs(*window_);
    while (auto* menu = QApplication::activePopupWidget())
        menu->close();
}

void QtDesktop::say(const Notice& notice) {
    if (window_ && takesRequests_)
        window_->say(notice);
}

// Of files it is the help pages alone that are opened.
void QtDesktop::couldNotOpen(const std::string& url) {
    if (!window_ || !takesRequests_)
        return;
    QUrl address(QString::fromStdString(url));
    say(address.isLocalFile() ? HelpInWindow : LinkNotOpened);
    if (address.isLocalFile())
        showHelpDialog(*window_, address);
}

void QtDesktop::setWindow(MainWindow* window) {
    window_ = window;
    application.setWindow(window);
    alerts.setWindow(window);
    sharingServicePicker.setWindow(window);
    feedback.setWindow(window);
}

}  // namespace zelvo::platform
