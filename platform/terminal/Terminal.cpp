#include "platform/terminal/Terminal.h"

#include "platform/qt/core/Sheets.h"

namespace zelvo::platform {

bool TerminalWorkspace::openUrl(const std::string& url) {
    console_.line(url);
    return true;
}

Terminal::Terminal(MainQueue& mainQueue, const Bundle& bundle, const Explanations& explanations,
                   int input, int output)
    : console(input, output),
      alerts(mainQueue, console, bundle, explanations),
      workspace(console),
      signals_([this] { application.terminateFromOutside(); }) {
    application.setSessionAnswer(
        [this] { alerts.answer(AlertKind::SessionUnderWay, AlertFirstButtonReturn); });
}

}  // namespace zelvo::platform
