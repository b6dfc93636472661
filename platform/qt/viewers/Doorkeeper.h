#pragma once

#include <QObject>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/Observable.h"
#include "platform/Viewers.h"
#include "platform/qt/viewers/AnswerGuard.h"

namespace zelvo::platform {

class Bundle;
class QuestionDialog;

/// Brings the question to the user: as a dialog while nobody is inside, else by their own wish
/// alone, since who is inside would see it, too. Main thread only.
class Doorkeeper {
  public:
    /// Both outlive this object.
    Doorkeeper(Viewers& viewers, const Bundle& bundle, AnswerGuard::Clock clock = Now);
    ~Doorkeeper();
    Doorkeeper(const Doorkeeper&) = delete;
    Doorkeeper& operator=(const Doorkeeper&) = delete;

    /// The user wants to see the question that is open. Nothing without one.
    void showQuestion();
    /// Refuses the viewer, while they are asked about and nothing speaks against that it is meant.
    void refuse(std::uint32_t viewer);
    /// Takes the question down and asks nothing any more: the application ends.
    void end();

    static std::chrono::steady_clock::time_point Now() { return std::chrono::steady_clock::now(); }

  private:
    void update();
    void answer(std::uint32_t viewer, ViewerAnswer answer);
    QuestionDialog& dialog();
    void takeBack();

    Viewers& viewers_;
    const Bundle& bundle_;
    const AnswerGuard::Clock clock_;
    AnswerGuard guard_;
    /// Made at the first question: most sessions have none, and its fonts and texts are memory.
    std::unique_ptr<QuestionDialog> dialog_;
    std::uint32_t asked_ = 0;
    std::uint32_t answered_ = 0;
    bool hasEnded_ = false;
    std::vector<Subscription> subscriptions_;
};

}  // namespace zelvo::platform
