#pragma once

#include <functional>
#include <string>

#include "platform/Feedback.h"
#include "platform/Pasteboard.h"
#include "platform/SharingServicePicker.h"
#include "platform/Window.h"
#include "platform/qt/programs/QtWorkspace.h"

namespace zelvo::platform {

class Console;

/// The clipboard of whoever sits at the terminal, where that has a screen.
class TerminalPasteboard final : public Pasteboard {
  public:
    /// The console outlives this object.
    explicit TerminalPasteboard(Console& console) : console_(console) {}

    void clearContents() override {}
    void writeObjects(const std::vector<PasteboardObject>& objects) override;

  private:
    Console& console_;
};

/// Hands the items over to the view, which shows them as one message: no service takes them here.
class TerminalSharingServicePicker final : public SharingServicePicker {
  public:
    using Listener = std::function<void(const std::vector<std::string>& items)>;

    /// In the place of the listener before; none ignores the items.
    void listen(Listener listener) { listener_ = std::move(listener); }

    void show(const std::vector<std::string>& items, SharingServicePickerDelegate&, const Rect&,
              Button*, RectEdge) override {
        if (listener_)
            listener_(items);
    }

  private:
    Listener listener_;
};

/// What a desktop gives and a terminal has not. It does as little as its contract allows.
class TerminalWindowSystem final : public WindowSystem {
  public:
    Rect contentRectForFrameRect(const Rect& frame, WindowStyle) const override { return frame; }
};

/// Shows what a feedback says of the system, to be sent by its user.
class TerminalFeedback final : public Feedback {
  public:
    /// The console outlives this object.
    TerminalFeedback(Console& console, std::function<std::string()> describe)
        : console_(console), describe_(std::move(describe)) {}

    void sendTrackingReport() override {}
    void setupIssuesController(bool) override {}
    void showFeedbackDialog(int mode) override;

  private:
    Console& console_;
    std::function<std::string()> describe_;
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
