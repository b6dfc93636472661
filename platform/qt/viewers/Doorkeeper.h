#pragma once

#include <QObject>
#include <functional>
#include <vector>

#include "platform/Observable.h"
#include "platform/qt/viewers/QuestionDialog.h"

namespace zelvo::platform {

class Bundle;
class Viewers;

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

    Viewers& viewers_;
    AnswerGuard guard_;
    QuestionDialog dialog_;
    std::uint32_t asked_ = 0;
    std::uint32_t answered_ = 0;
    bool hasEnded_ = false;
    std::vector<Subscription> subscriptions_;
};

}  // namespace zelvo::platform
