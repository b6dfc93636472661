#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/Observable.h"
#include "platform/qt/content/RowPrinter.h"
#include "platform/terminal/QuestionPrompt.h"
#include "platform/terminal/WayInLines.h"

namespace zelvo::platform {

class ApplicationDelegate;
class Bundle;
class Explanations;
class MainWindowModel;
class Terminal;

/// The model in a terminal: its rows as lines, the link with a QR code, who wants in and who is in,
/// keys for the actions, and words for the answers.
/// Main thread only.
class TerminalView {
  public:
    /// All outlive this object.
    TerminalView(
        Terminal& terminal, MainWindowModel& model, ApplicationDelegate& delegate,
        const Explanations& explanations, const Bundle& bundle, Viewers& viewers, WayIn& wayIn,
        int output = 1,
        std::function<QuestionPrompt::Clock::time_point()> now = QuestionPrompt::Clock::now);
    ~TerminalView();
    TerminalView(const TerminalView&) = delete;
    TerminalView& operator=(const TerminalView&) = delete;

  private:
    void take(char byte);
    void takeKey(char key);
    void inputEnded();
    void takeNoMoreRequests();
    void explain();
    void linkChanged();
    void showWebLink();
    void showQrCode();

    Terminal& terminal_;
    MainWindowModel& model_;
    const Explanations& explanations_;
    const Bundle& bundle_;
    const WayIn& wayIn_;
    RowPrinter rows_;
    WayInLines wayInLines_;
    QuestionPrompt prompt_;
    std::string shownReason_;
    std::string shownLink_;
    std::vector<Subscription> subscriptions_;
};

}  // namespace zelvo::platform
