#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "platform/Alerts.h"

namespace zelvo::platform {

class Bundle;
class Console;
class Explanations;
class MainQueue;

/// Sheets as questions in the terminal, their buttons as letters. Main thread only.
class TerminalAlerts final : public Alerts {
  public:
    /// All outlive this object.
    TerminalAlerts(MainQueue& mainQueue, Console& console, const Bundle& bundle,
                   const Explanations& explanations);

    void beginSheet(Alert alert, std::function<void(int response)> done) override;

    /// Takes the key for the question that is open. False when it means nothing there.
    bool takeKey(char key);
    /// Asks the question that is open once more.
    void askAgain();
    /// Gives the response of an alert, asked or still waiting, on the user's behalf. False when
    /// there is no such alert.
    bool answer(AlertKind kind, int response);
    /// Drops every question unanswered: what they asked is over.
    void dismiss() { questions_.clear(); }
    /// Drops every question unanswered and asks none any more: the application ends.
    void end();
    /// Nobody can answer any more: a question about a session is answered with its first button.
    void inputEnded() { later(&TerminalAlerts::answerWithoutInput); }

  private:
    struct Question {
        Alert alert;
        std::function<void(int)> done;
        /// One for each button.
        std::string letters;
        bool isAsked = false;
    };

    void later(void (TerminalAlerts::*what)());
    void askNext();
    void answerWithoutInput();
    void finish(std::deque<Question>::iterator question, int response);

    MainQueue& mainQueue_;
    Console& console_;
    const Bundle& bundle_;
    const Explanations& explanations_;
    std::deque<Question> questions_;
    bool hasEnded_ = false;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace zelvo::platform
