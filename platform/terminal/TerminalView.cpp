#include "platform/terminal/TerminalView.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "platform/ApplicationDelegate.h"
#include "platform/Bundle.h"
#include "platform/Explanations.h"
#include "platform/MainWindowModel.h"
#include "platform/Preferences.h"
#include "platform/qt/content/Message.h"
#include "platform/qt/content/QrCode.h"
#include "platform/qt/content/ShownText.h"
#include "platform/qt/content/StatusTexts.h"
#include "platform/terminal/Terminal.h"

namespace zelvo::platform {

namespace {

// Drawn in light on dark by their own colours, so that the terminal's do not matter.
constexpr const char* CodeColours = "\033[97;40m";
constexpr const char* NormalColours = "\033[0m";
constexpr const char* AskedToCopy =
    "Your terminal was asked to copy it. If nothing can be pasted, mark the link to copy it.";
constexpr const char* Hint = "Press ? for all keys, q to quit.";

// By the convention of no-color.org, and the terminal's own word.
bool takesColours() {
    const char* wish = std::getenv("NO_COLOR");
    const char* kind = std::getenv("TERM");
    return (!wish || !*wish) && kind && std::strcmp(kind, "dumb") != 0;
}

/// A caption of the window's, where a letter is marked and dots promise a dialog.
std::string withoutMark(std::string caption) {
    if (auto mark = caption.find("(&"); mark != std::string::npos)
        caption.erase(mark, 4);
    std::erase(caption, '&');
    for (const char* dots : {" …", "…"})
        if (caption.ends_with(dots))
            caption.resize(caption.size() - std::strlen(dots));
    return caption;
}

/// The code's lines, from the link's page; none where the terminal cannot show them whole.
std::vector<std::string> codeOf(const std::string& link, int columns, int lines) {
    auto code = Encoding().isUtf8() ? makeQrCode(link) : std::nullopt;
    if (!code || (columns > 0 && columns < widthOf(*code)))
        return {};
    auto drawn = linesOf(*code);
    if (lines > 0 && lines < static_cast<int>(drawn.size()))
        return {};
    if (takesColours())
        for (auto& line : drawn)
            line = CodeColours + line + NormalColours;
    return drawn;
}

}  // namespace

TerminalView::TerminalView(const Surroundings& surroundings, int output,
                           std::function<QuestionPrompt::Clock::time_point()> now)
    : terminal_(surroundings.terminal),
      model_(surroundings.model),
      explanations_(surroundings.explanations),
      bundle_(surroundings.bundle),
      viewers_(surroundings.viewers),
      wayIn_(surroundings.wayIn),
      preferences_(surroundings.preferences),
      wayInLines_(wayIn_, model_, bundle_, [this](auto& text) { terminal_.console.line(text); }),
      prompt_(viewers_, model_, explanations_, bundle_,
              {[this](auto& text) { terminal_.console.line(text); },
               [this](auto& text) { terminal_.console.echo(text); }, std::move(now)}) {
    terminal_.application.setDelegate(&surroundings.delegate);
    if (!terminal_.console.screen())
        rows_.emplace(model_, true, output);
    observe();
    terminal_.console.listen([this](char byte) { take(byte); }, [this] { inputEnded(); });
    terminal_.sharingServicePicker.listen([this](auto& items) { showMessage(items); });
    if (terminal_.console.outputIsTerminal() && !terminal_.console.screen())
        terminal_.console.line(bundle_.localizedString(Hint));
    draw();
}

TerminalView::~TerminalView() {
    terminal_.application.setDelegate(nullptr);
    terminal_.console.listen([](char) {}, [] {});
    terminal_.sharingServicePicker.listen(nullptr);
}

void TerminalView::observe() {
    const auto add = [this](Subscription subscription) {
        subscriptions_.push_back(std::move(subscription));
    };
    const auto drawn = [this](const auto&) { draw(); };
    add(model_.sharedLink().subscribe([this](const auto&) { linkChanged(); }));
    add(model_.readyToShare().subscribe([this](bool) { linkChanged(); }));
    add(model_.zelvoStatusProperty().subscribe([this](auto) { explain(); }));
    add(model_.isQuitting().subscribe([this](bool quits) {
        if (quits)
            takeNoMoreRequests();
    }));
    for (const auto* reason : {&explanations_.screenSharing(), &explanations_.router(),
                               &explanations_.keptLink(), &explanations_.withdrawal()})
        add(reason->subscribe([this](auto&) { explain(); }));
    add(explanations_.way().subscribe([this](auto& way) {
        if (!way.empty() && !terminal_.console.screen())
            terminal_.console.line(way);
        draw();
    }));
    // Its letters meant nothing meanwhile.
    add(viewers_.question().subscribe([this](auto& question) {
        if (!question)
            terminal_.alerts.askAgain();
        draw();
    }));
    add(model_.portMappingStatusText().subscribe(drawn));
    add(model_.waitingForConnectionStatusText().subscribe(drawn));
    add(viewers_.inside().subscribe(drawn));
    add(viewers_.refusesEverybody().subscribe(drawn));
    add(wayIn_.isRelay().subscribe(drawn));
}

const std::vector<TerminalView::Key>& TerminalView::keys() {
    using View = TerminalView;
    static const std::vector<Key> Keys = {
        {'q', "&Quit", [](View& view) { view.terminal_.application.terminate(); }},
        {'c', "&Copy Link", [](View& view) { view.copyLink(); }},
        {'p', "Copy Link for &Browsers", [](View& view) { view.copyWebLink(); }},
        {'m', "E-mail…",
         [](View& view) {
             if (view.model_.readyToShare().value())
                 view.model_.shareLink(nullptr);
         }},
        {'k', "QR Code…", [](View& view) { view.showQrCode(); }},
        {'l', "&New Link", [](View& view) { view.model_.makeNewLink(); }},
        {'o', "Start Over", [](View& view) { view.model_.startOver(); }},
        {'d', "&Disconnect Viewer", [](View& view) { view.prompt_.disconnect(); }},
        {'r', "Only watch", [](View& view) { view.prompt_.changeRights(); },
         [](const View& view) {
             const auto& inside = view.viewers_.inside().value();
             return !inside.empty() && std::ranges::all_of(inside, [](const auto& viewer) {
                 return viewer.rights == ViewerRights::Watch;
             });
         }},
        {'s', "Show", [](View& view) { view.prompt_.show(); }},
        {'a', "Ask me again", [](View& view) { view.prompt_.askAgain(); }},
        {'w', "Ask Only about People with the &Link",
         [](View& view) { view.prompt_.changeWhoMayAsk(); },
         [](const View& view) { return view.viewers_.admitsOnlyLinkHolders().value(); }},
        {'b', "My Helper Has Only a &Browser",
         [](View& view) { view.wayInLines_.change(RelayUse::Preferred); },
         [](const View& view) { return view.wayIn_.relayUse().value() == RelayUse::Preferred; }},
        {'n', "Never &through a Relay",
         [](View& view) { view.wayInLines_.change(RelayUse::Never); },
         [](const View& view) { return view.wayIn_.relayUse().value() == RelayUse::Never; }},
        {'e', "A &New Link at Every Start",
         [](View& view) {
             view.preferences_.setMakesNewLinks(!view.preferences_.makesNewLinks().value());
             view.showKeys();
         },
         [](const View& view) { return view.preferences_.makesNewLinks().value(); }},
        {'h', "Zelvo &Help", [](View& view) { view.model_.showHelp(); }},
        {'u', "&Router Help", [](View& view) { view.model_.showRouterHelp(); }},
        {'f', "Feedback", [](View& view) { view.model_.showFeedbackDialog(); }},
        {'?', nullptr, [](View& view) { view.showKeys(); }},
    };
    return Keys;
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
    draw();
}

void TerminalView::takeKey(char key) {
    // The same key that covered the page shows it again.
    if (auto* screen = terminal_.console.screen(); screen && screen->isCovered()) {
        screen->cover({});
        if (key == std::exchange(covering_, 0))
            return;
    }
    if (terminal_.alerts.takeKey(key))
        return;
    const auto& all = keys();
    auto found = std::ranges::find(all, key, &Key::key);
    if (found == all.end())
        return;
    covering_ = key == 'k' || key == '?' ? key : 0;
    found->press(*this);
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
    if (terminal_.console.outputIsTerminal() && !terminal_.console.screen())
        terminal_.console.line(statusTexts(model_, explanations_, bundle_).explanation);
    draw();
}

void TerminalView::explain() {
    auto reason = reasonFor(model_, explanations_);
    if (std::exchange(shownReason_, reason) != reason && !reason.empty() &&
        !terminal_.console.screen())
        terminal_.console.line(reason);
    draw();
}

void TerminalView::linkChanged() {
    if (model_.readyToShare().value() && model_.sharedLink().value() != shownLink_) {
        shownLink_ = model_.sharedLink().value();
        if (!shownLink_.empty() && !terminal_.console.screen())
            tellWebLink();
    }
    draw();
}

void TerminalView::tellWebLink() {
    if (wayIn_.isRelay().value())
        terminal_.console.line("In a browser: " +
                               shownText(wayIn_.webLink(shownLink_)).toStdString());
    tellQrCode();
}

void TerminalView::tellQrCode() {
    if (!terminal_.console.outputIsTerminal())
        return;
    for (const auto& line : codeOf(wayIn_.webLink(shownLink_), terminal_.console.columns(), 0))
        terminal_.console.line(line);
}

void TerminalView::copyLink() {
    if (shownLink_.empty())
        return;
    if (!terminal_.console.screen()) {
        terminal_.console.line("Link: " + shownText(shownLink_).toStdString());
        return tellWebLink();
    }
    model_.copyLink();
    terminal_.console.line(bundle_.localizedString(AskedToCopy));
}

void TerminalView::copyWebLink() {
    if (!wayIn_.isRelay().value())
        return wayInLines_.tell();
    if (shownLink_.empty())
        return;
    auto* screen = terminal_.console.screen();
    if (!screen)
        return tellWebLink();
    screen->copy(wayIn_.webLink(shownLink_));
    terminal_.console.line(bundle_.localizedString(AskedToCopy));
}

void TerminalView::showMessage(const std::vector<std::string>& items) {
    const auto message = messageOf(items, wayIn_, bundle_);
    std::string shown;
    for (const auto& line : QString::fromStdString(message).split('\n'))
        shown += (shown.empty() ? "" : "\n") + shownText(line.toStdString()).toStdString();
    terminal_.console.line(shown);
    if (auto* screen = terminal_.console.screen()) {
        screen->copy(message);
        terminal_.console.line(bundle_.localizedString(AskedToCopy));
    }
}

void TerminalView::showKeys() {
    std::vector<std::string> lines;
    for (const auto& key : keys()) {
        if (!key.caption)
            continue;
        const char* box = !key.isOn ? "" : key.isOn(*this) ? "[x] " : "[ ] ";
        lines.push_back(std::string(1, key.key) + "  " + box +
                        withoutMark(bundle_.localizedString(key.caption)));
    }
    if (auto* screen = terminal_.console.screen())
        return screen->cover(std::move(lines));
    for (const auto& line : lines)
        terminal_.console.line(line);
}

void TerminalView::showQrCode() {
    auto* screen = terminal_.console.screen();
    if (!screen)
        return tellQrCode();
    if (shownLink_.empty())
        return;
    const auto [columns, lines] = screen->size();
    auto code = codeOf(wayIn_.webLink(shownLink_), columns, lines);
    if (code.empty())
        terminal_.console.line(bundle_.localizedString(
            "The terminal cannot show the QR code: it is too small, or not made for UTF-8."));
    else
        screen->cover(std::move(code), true);
}

void TerminalView::draw() {
    auto* screen = terminal_.console.screen();
    if (!screen)
        return;
    auto texts = statusTexts(model_, explanations_, bundle_, &viewers_);
    Screen::Page page{.title = "Zelvo: " + texts.title,
                      .head = {texts.explanation, ""},
                      .keys = bundle_.localizedString(Hint),
                      .typed = prompt_.takesWords() ? std::optional(prompt_.typed()) : std::nullopt,
                      .webLink = {},
                      .link = {}};
    for (const auto* row :
         {&model_.portMappingStatusText(), &model_.waitingForConnectionStatusText()})
        if (!row->value().empty())
            page.head.push_back(shownText(row->value()).toStdString());
    for (auto& text : prompt_.insideTexts())
        page.head.push_back(std::move(text));
    page.head.emplace_back();
    if (model_.readyToShare().value() && !model_.isQuitting().value() && !shownLink_.empty()) {
        page.link = shownText(shownLink_).toStdString();
        if (wayIn_.isRelay().value())
            page.webLink = shownText(wayIn_.webLink(shownLink_)).toStdString();
    }
    screen->show(std::move(page));
    terminal_.console.setLastWords(explanations_.withdrawal().value());
}

}  // namespace zelvo::platform
