#pragma once

#include <functional>
#include <string>

#include "platform/Feedback.h"

class QWidget;

namespace zelvo::platform {

/// Feedback that only the user sends: a dialog with the user's words and what is added to them, to
/// be copied or handed to the mail program. Needs a QApplication.
class QtFeedback final : public Feedback {
  public:
    /// `describe` gives the facts that are added.
    explicit QtFeedback(std::function<std::string()> describe) : describe_(std::move(describe)) {}

    /// Nothing is reported.
    void sendTrackingReport() override {}
    void setupIssuesController(bool) override {}
    void showFeedbackDialog(int mode) override;

    /// The window below the dialog.
    void setWindow(QWidget* window) { window_ = window; }

  private:
    std::function<std::string()> describe_;
    QWidget* window_ = nullptr;
};

}  // namespace zelvo::platform
