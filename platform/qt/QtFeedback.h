#pragma once

#include "platform/Feedback.h"

class QWidget;

namespace zelvo::platform {

/// Feedback that only the user sends. Needs a QApplication.
class QtFeedback final : public Feedback {
  public:
    /// Nothing is reported.
    void sendTrackingReport() override {}
    void setupIssuesController(bool) override {}
    void showFeedbackDialog(int mode) override;

    /// The window below the dialog.
    void setWindow(QWidget* window) { window_ = window; }

  private:
    QWidget* window_ = nullptr;
};

}  // namespace zelvo::platform
