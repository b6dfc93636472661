#pragma once

#include "platform/Feedback.h"
#include "platform/Pasteboard.h"
#include "platform/SharingServicePicker.h"
#include "platform/Window.h"
#include "platform/qt/programs/QtWorkspace.h"

namespace zelvo::platform {

class Console;

/// What a desktop gives and a terminal has not. Each does as little as its contract allows.
class TerminalPasteboard final : public Pasteboard {
  public:
    void clearContents() override {}
    void writeObjects(const std::vector<PasteboardObject>&) override {}
};

class TerminalSharingServicePicker final : public SharingServicePicker {
  public:
    void show(const std::vector<std::string>&, SharingServicePickerDelegate&, const Rect&, Button*,
              RectEdge) override {}
};

class TerminalWindowSystem final : public WindowSystem {
  public:
    Rect contentRectForFrameRect(const Rect& frame, WindowStyle) const override { return frame; }
};

class TerminalFeedback final : public Feedback {
  public:
    void sendTrackingReport() override {}
    void setupIssuesController(bool) override {}
    void showFeedbackDialog(int) override {}
};

/// Shows an address instead of opening it.
class TerminalWorkspace final : public Workspace {
  public:
    /// The console outlives this object.
    explicit TerminalWorkspace(Console& console) : console_(console) {}

    void openUrl(const std::string& url) override;
    std::vector<std::unique_ptr<RunningApplication>> runningApplications() override {
        return desktop_.runningApplications();
    }

  private:
    Console& console_;
    QtWorkspace desktop_;
};

}  // namespace zelvo::platform
