#include "platform/qt/QtDesktop.h"

#include <QCoreApplication>

#include "platform/Bundle.h"
#include "platform/qt/Redaction.h"
#include "platform/qt/SessionSheet.h"
#include "platform/qt/SharingServices.h"

namespace zelvo::platform {

QtDesktop::QtDesktop(QtMainLoop& loop, const Bundle& bundle,
                     std::function<std::vector<std::string>()> logLines)
    : translator_(bundle),
      alerts(loop, bundle),
      sharingServicePicker(
          loop, bundle,
          [this](const auto& items) { return desktopSharingServices(items, workspace, window_); }),
      feedback([&bundle, logLines = std::move(logLines)] {
          return describeSystem(bundle.shortVersionString(), logLines());
      }),
      signals_([this] { application.terminateFromOutside(); }) {
    application.setSessionAnswer(
        [this] { alerts.answer(SessionSheetIdentifier, AlertFirstButtonReturn); });
}

void QtDesktop::prepareProcess() {
    // Nothing here is drawn by OpenGL, and its drivers cost more than the rest of the application.
    if (qEnvironmentVariableIsEmpty("QT_XCB_GL_INTEGRATION"))
        qputenv("QT_XCB_GL_INTEGRATION", "none");
    QCoreApplication::setApplicationName("zelvo");
}

void QtDesktop::attach(QWidget& window, ApplicationDelegate& delegate) {
    application.setDelegate(&delegate);
    setWindow(&window);
    QObject::connect(&window, &QObject::destroyed, &translator_, [this] {
        application.setDelegate(nullptr);
        setWindow(nullptr);
    });
}

void QtDesktop::setWindow(QWidget* window) {
    window_ = window;
    application.setWindow(window);
    alerts.setWindow(window);
    sharingServicePicker.setWindow(window);
    feedback.setWindow(window);
}

}  // namespace zelvo::platform
