#pragma once

#include <string>
#include <vector>

#include "platform/Observable.h"
#include "platform/qt/core/RowPrinter.h"

namespace zelvo::platform {

class ApplicationDelegate;
class Bundle;
class Explanations;
class MainWindowModel;
class Terminal;

/// The model in a terminal: its rows as lines, the link with a QR code, and keys for the actions.
/// Main thread only.
class TerminalView {
  public:
    /// All outlive this object.
    TerminalView(Terminal& terminal, MainWindowModel& model, ApplicationDelegate& delegate,
                 const Explanations& explanations, const Bundle& bundle, int output = 1);
    ~TerminalView();
    TerminalView(const TerminalView&) = delete;
    TerminalView& operator=(const TerminalView&) = delete;

  private:
    void takeKey(char key);
    void inputEnded();
    void takeNoMoreRequests();
    void explain();
    void linkChanged();
    void showQrCode();

    Terminal& terminal_;
    MainWindowModel& model_;
    const Explanations& explanations_;
    const Bundle& bundle_;
    RowPrinter rows_;
    std::string shownReason_;
    std::string shownLink_;
    std::vector<Subscription> subscriptions_;
};

}  // namespace zelvo::platform
