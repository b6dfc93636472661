#include "platform/terminal/Terminal.h"

#include "platform/Bundle.h"
#include "platform/qt/content/Redaction.h"
#include "platform/qt/core/QtMainLoop.h"

namespace zelvo::platform {

void TerminalWorkspace::openUrl(const std::string& url) {
    console_.line(url);
}

void TerminalPasteboard::writeObjects(const std::vector<PasteboardObject>& objects) {
    if (auto* screen = console_.screen(); screen && !objects.empty())
        screen->copy(objects.front().text);
}

void TerminalFeedback::showFeedbackDialog(int) {
    console_.line(describe_());
}

Terminal::Terminal(QtMainLoop& loop, const Bundle& bundle, const Explanations& explanations,
                   std::function<std::vector<std::string>()> logLines, int input, int output)
    : console(input, output),
      alerts(loop, console, bundle, explanations),
      pasteboard(console),
      workspace(console),
      feedback(console,
               [&bundle, logLines = std::move(logLines)] {
                   return describeSystem(bundle.shortVersionString(), logLines());
               }),
      signals_([this] { application.terminateFromOutside(); }) {
    application.setBeforeQuit([this, &loop] {
        loop.takeTurnNow();
        alerts.dismiss();
    });
    application.setSessionAnswer(
        [this] { alerts.answer(AlertKind::SessionUnderWay, AlertFirstButtonReturn); });
}

}  // namespace zelvo::platform
