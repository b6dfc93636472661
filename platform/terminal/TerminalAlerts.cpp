#include "platform/terminal/TerminalAlerts.h"

#include <algorithm>
#include <cctype>
#include <set>

#include "platform/Bundle.h"
#include "platform/MainQueue.h"
#include "platform/qt/content/Sheets.h"
#include "platform/terminal/Console.h"

namespace zelvo::platform {

namespace {

constexpr char HelpKey = '?';

char lowered(char c) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

// The titles' own first letters where they are letters of ASCII and differ, else a, b, c.
std::string lettersFor(const std::vector<std::string>& titles) {
    std::string own;
    std::string inOrder;
    for (const auto& title : titles) {
        inOrder += static_cast<char>('a' + inOrder.size());
        if (!title.empty() && std::isalpha(static_cast<unsigned char>(title[0])) != 0)
            own += lowered(title[0]);
    }
    bool differ = std::set<char>(own.begin(), own.end()).size() == titles.size();
    return differ ? own : inOrder;
}

}  // namespace

TerminalAlerts::TerminalAlerts(MainQueue& mainQueue, Console& console, const Bundle& bundle,
                               const Explanations& explanations)
    : mainQueue_(mainQueue), console_(console), bundle_(bundle), explanations_(explanations) {}

void TerminalAlerts::later(void (TerminalAlerts::*what)()) {
    mainQueue_.async([this, what, weak = std::weak_ptr(alive_)] {
        if (weak.lock())
            (this->*what)();
    });
}

void TerminalAlerts::beginSheet(Alert alert, std::function<void(int response)> done) {
    if (hasEnded_)
        return;
    auto letters = lettersFor(alert.buttonTitles);
    questions_.push_back({std::move(alert), std::move(done), std::move(letters)});
    later(&TerminalAlerts::askNext);
    if (console_.inputHasEnded())
        inputEnded();
}

void TerminalAlerts::askNext() {
    if (questions_.empty() || questions_.front().isAsked)
        return;
    auto& question = questions_.front();
    question.isAsked = true;
    console_.line("");
    console_.line(question.alert.messageText);
    if (auto reason = reasonFor(question.alert, explanations_); !reason.empty())
        console_.line(reason);
    console_.line(question.alert.informativeText);
    std::string choices;
    for (std::size_t i = 0; i < question.letters.size(); ++i)
        choices += std::string(i == 0 ? "" : "   ") + "[" + question.letters[i] + "] " +
                   question.alert.buttonTitles[i];
    if (question.alert.showsHelp)
        choices += std::string("   [") + HelpKey + "] " + bundle_.localizedString("Help");
    console_.line(choices);
}

void TerminalAlerts::askAgain() {
    if (questions_.empty())
        return;
    questions_.front().isAsked = false;
    later(&TerminalAlerts::askNext);
}

bool TerminalAlerts::takeKey(char key) {
    if (questions_.empty() || !questions_.front().isAsked)
        return false;
    auto& question = questions_.front();
    if (key == HelpKey && question.alert.showsHelp && question.alert.showHelp) {
        question.alert.showHelp();
        return true;
    }
    auto at = question.letters.find(lowered(key));
    if (at == std::string::npos)
        return false;
    finish(questions_.begin(), AlertFirstButtonReturn + static_cast<int>(at));
    return true;
}

bool TerminalAlerts::answer(AlertKind kind, int response) {
    auto found = std::find_if(questions_.begin(), questions_.end(),
                              [&](const auto& question) { return question.alert.kind == kind; });
    if (found == questions_.end())
        return false;
    finish(found, response);
    return true;
}

void TerminalAlerts::end() {
    hasEnded_ = true;
    dismiss();
}

// Quitting must not wait for an answer that can never come.
void TerminalAlerts::answerWithoutInput() {
    answer(AlertKind::SessionUnderWay, AlertFirstButtonReturn);
}

void TerminalAlerts::finish(std::deque<Question>::iterator question, int response) {
    auto done = std::move(question->done);
    questions_.erase(question);
    later(&TerminalAlerts::askNext);
    if (done)
        done(response);
}

}  // namespace zelvo::platform
