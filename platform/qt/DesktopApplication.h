#pragma once

#include <QObject>

#include <string>

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

    /// Leaves the window up for as long as it takes to read the text that it shows, or until it is
    /// closed. Not where there is no text or nobody to read it, as when the session ends. After the
    /// loop's run.
    void showLastWords(const std::string& text);

    /// The window that stands for the application; null while there is none.
    void setWindow(QWidget* window) { window_ = window; }

  private:
    void endSession(QSessionManager& session);

    QObject receiver_;
    QWidget* window_ = nullptr;
    bool sessionEnds_ = false;
};

}  // namespace zelvo::platform
