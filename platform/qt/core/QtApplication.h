#pragma once

#include <functional>

#include "platform/Application.h"

namespace zelvo::platform {

class ApplicationDelegate;

/// Quitting, on QtCore alone; what belongs to a desktop does nothing here. Main thread only.
class QtApplication : public Application {
  public:
    QtApplication() = default;
    QtApplication(const QtApplication&) = delete;
    QtApplication& operator=(const QtApplication&) = delete;

    void terminate() override;
    void replyToApplicationShouldTerminate(bool shouldTerminate) override;

    /// A quit request from outside (a signal). One that comes while an earlier one's question is
    /// still open answers that question with its first button.
    void terminateFromOutside();

    void setActivationPolicy(ActivationPolicy) override {}
    void displayDockTile() override {}
    void activateIgnoringOtherApps(bool) override {}

    /// Without a delegate a quit request ends the loop at once. Outlives the loop's run.
    void setDelegate(ApplicationDelegate* delegate) { delegate_ = delegate; }
    /// Called before the delegate is asked, for what must not wait until after the quit.
    void setBeforeQuit(std::function<void()> call) { beforeQuit_ = std::move(call); }
    /// Answers the open question about a session under way, if there is one.
    void setSessionAnswer(std::function<void()> answer) { answerSession_ = std::move(answer); }

    /// Between a quit request and its answer.
    bool isTerminating() const { return state_ == State::Asking; }
    /// The loop has been told to end.
    bool hasTerminated() const { return state_ == State::Ended; }
    /// The quit that is under way or done was asked for by a signal.
    bool wasAskedFromOutside() const { return askedFromOutside_; }

  private:
    enum class State { Running, Asking, Ended };

    void end();

    ApplicationDelegate* delegate_ = nullptr;
    std::function<void()> beforeQuit_;
    std::function<void()> answerSession_;
    State state_ = State::Running;
    bool askedFromOutside_ = false;
};

}  // namespace zelvo::platform
