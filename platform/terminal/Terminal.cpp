#include "platform/terminal/Terminal.h"

#include "platform/qt/content/Sheets.h"

namespace zelvo::platform {

void TerminalWorkspace::openUrl(const std::string& url) {
    console_.line(url);
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
