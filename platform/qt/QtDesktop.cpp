#include "platform/qt/QtDesktop.h"

#include <QApplication>

#include "platform/Bundle.h"
#include "platform/MainWindowModel.h"
#include "platform/qt/core/Redaction.h"
#include "platform/qt/core/Sheets.h"
#include "platform/qt/dialogs/Dialogs.h"
#include "platform/qt/sharing/SharingServices.h"

namespace zelvo::platform {

QtDesktop::QtDesktop(QtMainLoop& loop, const Bundle& bundle, const Explanations& explanations,
                     std::function<std::vector<std::string>()> logLines)
    : translator_(bundle),
      alerts(loop, bundle, explanations),
      sharingServicePicker(
          loop, bundle,
          [this](const auto& items) { return desktopSharingServices(items, workspace, window_); }),
      feedback([&bundle, logLines = std::move(logLines)] {
          return describeSystem(bundle.shortVersionString(), logLines());
      }),
      signals_([this] { application.terminateFromOutside(); }) {
    application.setSessionAnswer(
        [this] { alerts.answer(AlertKind::SessionUnderWay, AlertFirstButtonReturn); });
}

void QtDesktop::prepareProcess() {
    // Nothing here is drawn by OpenGL, and its drivers cost more than the rest of the application.
    if (qEnvironmentVariableIsEmpty("QT_XCB_GL_INTEGRATION"))
        qputenv("QT_XCB_GL_INTEGRATION", "none");
    QCoreApplication::setApplicationName("zelvo");
}

void QtDesktop::attach(QWidget& window, const MainWindowModel& model,
                       ApplicationDelegate& delegate) {
    application.setDelegate(&delegate);
    quitting_ = model.isQuitting().subscribe([this](bool quits) {
        if (quits)
            takeNoMoreRequests();
    });
    setWindow(&window);
    QObject::connect(&window, &QObject::destroyed, &translator_, [this] {
        application.setDelegate(nullptr);
        quitting_ = {};
        setWindow(nullptr);
    });
}

// An answer or a choice that is still open could make a link anew behind the quit's back.
void QtDesktop::takeNoMoreRequests() {
    alerts.end();
    if (window_)
        closeDialogs(*window_);
    while (auto* menu = QApplication::activePopupWidget())
        menu->close();
}

void QtDesktop::setWindow(QWidget* window) {
    window_ = window;
    application.setWindow(window);
    alerts.setWindow(window);
    sharingServicePicker.setWindow(window);
    feedback.setWindow(window);
}

}  // namespace zelvo::platform
