#include "platform/terminal/Terminal.h"

#include "platform/qt/content/Sheets.h"
#include "platform/qt/core/QtMainLoop.h"

namespace zelvo::platform {

void TerminalWorkspace::openUrl(const std::string& url) {
    console_.line(url);
}

Terminal::Terminal(QtMainLoop& loop, const Bundle& bundle, const Explanations& explanations,
                   int input, int output)
    : console(input, output),
      alerts(loop, console, bundle, explanations),
      workspace(console),
      signals_([this] { application.terminateFromOutside(); }) {
    application.setBeforeQuit([this, &loop] {
        loop.takeTurnNow();
        alerts.dismiss();
    });
    application.setSessionAnswer(
        [this] { alerts.answer(AlertKind::SessionUnderWay, AlertFirstButtonReturn); });
}

}  // namespace zelvo::platform
