#include "platform/terminal/TerminalView.h"

#include <langinfo.h>

#include <cstdlib>
#include <cstring>

#include "platform/ApplicationDelegate.h"
#include "platform/Bundle.h"
#include "platform/Explanations.h"
#include "platform/MainWindowModel.h"
#include "platform/qt/content/QrCode.h"
#include "platform/qt/content/ShownText.h"
#include "platform/qt/content/StatusTexts.h"
#include "platform/terminal/Terminal.h"

namespace zelvo::platform {

namespace {

// Drawn in light on dark by their own colours, so that the terminal's do not matter.
constexpr const char* CodeColours = "\033[97;40m";
constexpr const char* NormalColours = "\033[0m";

// By the convention of no-color.org, and the terminal's own word.
bool takesColours() {
    const char* wish = std::getenv("NO_COLOR");
    const char* kind = std::getenv("TERM");
    return (!wish || !*wish) && kind && std::strcmp(kind, "dumb") != 0;
}

}  // namespace

TerminalView::TerminalView(Terminal& terminal, MainWindowModel& model,
                           ApplicationDelegate& delegate, const Explanations& explanations,
                           const Bundle& bundle, Viewers& viewers, WayIn& wayIn, int output,
                           std::function<QuestionPrompt::Clock::time_point()> now)
    : terminal_(terminal),
      model_(model),
      explanations_(explanations),
      bundle_(bundle),
      wayIn_(wayIn),
      rows_(model, true, output),
      wayInLines_(wayIn, model, bundle, [&terminal](auto& text) { terminal.console.line(text); }),
      prompt_(viewers, model, explanations, bundle,
              {[&terminal](auto& text) { terminal.console.line(text); },
               [&terminal](auto& text) { terminal.console.echo(text); }, std::move(now)}) {
    terminal_.application.setDelegate(&delegate);
    subscriptions_.push_back(model.sharedLink().subscribe([this](const auto&) { linkChanged(); }));
    subscriptions_.push_back(model.readyToShare().subscribe([this](bool) { linkChanged(); }));
    subscriptions_.push_back(model.zelvoStatusProperty().subscribe([this](auto) { explain(); }));
    subscriptions_.push_back(model.isQuitting().subscribe([this](bool quits) {
        if (quits)
            takeNoMoreRequests();
    }));
    subscriptions_.push_back(explanations.screenSharing().subscribe([this](auto&) { explain(); }));
    subscriptions_.push_back(explanations.router().subscribe([this](auto&) { explain(); }));
    subscriptions_.push_back(explanations.way().subscribe([this](auto& way) {
        if (!way.empty())
            terminal_.console.line(way);
    }));
    subscriptions_.push_back(explanations.keptLink().subscribe([this](auto&) { explain(); }));
    subscriptions_.push_back(explanations.withdrawal().subscribe([this](auto&) { explain(); }));
    // Its letters meant nothing meanwhile.
    subscriptions_.push_back(viewers.question().subscribe([this](auto& question) {
        if (!question)
            terminal_.alerts.askAgain();
    }));
    terminal_.console.listen([this](char byte) { take(byte); }, [this] { inputEnded(); });
    if (terminal_.console.outputIsTerminal())
        terminal_.console.line(
            bundle_.localizedString("Keys: q quit, d disconnect the viewer, c show the link again, "
                                    "l new link, o start over, w who may ask, b browsers get in, n "
                                    "never a relay"));
}

TerminalView::~TerminalView() {
    terminal_.application.setDelegate(nullptr);
    terminal_.console.listen([](char) {}, [] {});
}

void TerminalView::take(char byte) {
    if (model_.isQuitting().value())
        return;
    if (byte == Console::EndOfTransmission) {
        terminal_.application.terminate();
    } else if (prompt_.takesWords()) {
        prompt_.take(byte);
    } else if (byte > ' ' && byte < 0x7f) {
        takeKey(byte);
    }
}

void TerminalView::takeKey(char key) {
    if (terminal_.alerts.takeKey(key))
        return;
    switch (key) {
        case 'q':
            terminal_.application.terminate();
            break;
        case 'd':
            prompt_.disconnect();
            break;
        case 'r':
            prompt_.changeRights();
            break;
        case 's':
            prompt_.show();
            break;
        case 'a':
            prompt_.askAgain();
            break;
        case 'l':
            model_.makeNewLink();
            break;
        case 'o':
            model_.startOver();
            break;
        case 'w':
            prompt_.changeWhoMayAsk();
            break;
        case 'b':
            wayInLines_.change(RelayUse::Preferred);
            break;
        case 'n':
            wayInLines_.change(RelayUse::Never);
            break;
        case 'c':
            if (!shownLink_.empty()) {
                terminal_.console.line("Link: " + shownText(shownLink_).toStdString());
                showWebLink();
            }
            break;
        default:
            break;
    }
}

void TerminalView::inputEnded() {
    if (!model_.isQuitting().value())
        terminal_.console.line(bundle_.localizedString(
            "The input has ended, so Zelvo quits. Started in a terminal, it keeps running."));
    terminal_.application.terminate();
    terminal_.alerts.inputEnded();
}

void TerminalView::takeNoMoreRequests() {
    terminal_.alerts.end();
    if (terminal_.console.outputIsTerminal())
        terminal_.console.line(statusTexts(model_, explanations_, bundle_).explanation);
}

void TerminalView::explain() {
    auto reason = reasonFor(model_, explanations_);
    if (reason == shownReason_)
        return;
    shownReason_ = reason;
    if (!reason.empty())
        terminal_.console.line(reason);
}

void TerminalView::linkChanged() {
    if (!model_.readyToShare().value() || model_.sharedLink().value() == shownLink_)
        return;
    shownLink_ = model_.sharedLink().value();
    if (!shownLink_.empty())
        showWebLink();
}

void TerminalView::showWebLink() {
    if (wayIn_.isRelay().value())
        terminal_.console.line("In a browser: " +
                               shownText(wayIn_.webLink(shownLink_)).toStdString());
    showQrCode();
}

void TerminalView::showQrCode() {
    bool drawsBlocks = std::strcmp(::nl_langinfo(CODESET), "UTF-8") == 0;
    if (!terminal_.console.outputIsTerminal() || !drawsBlocks)
        return;
    auto code = makeQrCode(wayIn_.webLink(shownLink_));
    if (!code)
        return;
    // Broken lines are no code.
    if (auto columns = terminal_.console.columns(); columns > 0 && columns < widthOf(*code))
        return;
    for (const auto& line : linesOf(*code))
        terminal_.console.line(takesColours() ? CodeColours + line + NormalColours : line);
}

}  // namespace zelvo::platform
