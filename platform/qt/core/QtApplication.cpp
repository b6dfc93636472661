#include "platform/qt/core/QtApplication.h"

#include <QCoreApplication>

#include "platform/ApplicationDelegate.h"

namespace zelvo::platform {

void QtApplication::terminate() {
    // Who asks again does not want to read last words.
    if (state_ == State::Ended)
        QCoreApplication::exit(0);
    if (state_ != State::Running)
        return;
    if (!delegate_) {
        end();
        return;
    }
    if (beforeQuit_)
        beforeQuit_();
    // The delegate may give its answer before it returns.
    state_ = State::Asking;
    switch (delegate_->applicationShouldTerminate()) {
        case TerminateReply::Now:
            replyToApplicationShouldTerminate(true);
            break;
        case TerminateReply::Cancel:
            replyToApplicationShouldTerminate(false);
            break;
        case TerminateReply::Later:
            break;
    }
}

void QtApplication::replyToApplicationShouldTerminate(bool shouldTerminate) {
    if (state_ != State::Asking)
        return;
    if (shouldTerminate) {
        end();
    } else {
        state_ = State::Running;
        askedFromOutside_ = false;
    }
}

void QtApplication::terminateFromOutside() {
    if (askedFromOutside_ && state_ == State::Asking) {
        if (answerSession_)
            answerSession_();
        return;
    }
    askedFromOutside_ = true;
    terminate();
}

void QtApplication::end() {
    state_ = State::Ended;
    QCoreApplication::exit(0);
}

}  // namespace zelvo::platform
