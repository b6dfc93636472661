#pragma once

#include <QObject>

#include "platform/qt/core/QtApplication.h"

class QSessionManager;
class QWidget;

namespace zelvo::platform {

/// The application on a desktop. Needs a QApplication.
class DesktopApplication final : public QtApplication {
  public:
    DesktopApplication();

    void setActivationPolicy(ActivationPolicy policy) override;
    void activateIgnoringOtherApps(bool ignoring) override;

    /// The window that stands for the application; null while there is none.
    void setWindow(QWidget* window) { window_ = window; }

  private:
    void endSession(QSessionManager& session);

    QObject receiver_;
    QWidget* window_ = nullptr;
};

}  // namespace zelvo::platform
