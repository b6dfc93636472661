#pragma once

#include "platform/qt/core/QtApplication.h"
#include "platform/qt/core/QuitSignals.h"
#include "platform/terminal/Console.h"
#include "platform/terminal/TerminalAlerts.h"
#include "platform/terminal/TerminalServices.h"

namespace zelvo::platform {

class Bundle;
class Explanations;
class QtMainLoop;

/// The desktop's services where there is none but a terminal, named as the members of Platform.
/// Needs a QCoreApplication that outlives it. Main thread only.
class Terminal {
  public:
    /// All outlive this object. `logLines` gives the log's last lines.
    Terminal(QtMainLoop& loop, const Bundle& bundle, const Explanations& explanations,
             std::function<std::vector<std::string>()> logLines, int input = 0, int output = 1);

    Console console;
    QtApplication application;
    TerminalAlerts alerts;
    TerminalWindowSystem windowSystem;
    TerminalSharingServicePicker sharingServicePicker;
    TerminalPasteboard pasteboard;
    TerminalWorkspace workspace;
    TerminalFeedback feedback;

  private:
    QuitSignals signals_;
};

}  // namespace zelvo::platform
