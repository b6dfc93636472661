#include "platform/qt/DesktopApplication.h"

#include <QApplication>
#include <QEventLoop>
#include <QSessionManager>
#include <QTimer>
#include <QWidget>
#include <chrono>

namespace zelvo::platform {

using namespace std::chrono_literals;

namespace {

constexpr auto TimeToRead = 6s;

}  // namespace

DesktopApplication::DesktopApplication() {
    // The window's close button is a question to the delegate.
    QApplication::setQuitOnLastWindowClosed(false);
    QObject::connect(
        qGuiApp, &QGuiApplication::commitDataRequest, &receiver_,
        [this](QSessionManager& session) { endSession(session); }, Qt::DirectConnection);
}

void DesktopApplication::setActivationPolicy(ActivationPolicy policy) {
    if (!window_)
        return;
    bool shown = window_->isVisible();
    // Window managers keep tool windows out of the task bar.
    window_->setWindowFlag(Qt::Tool, policy == ActivationPolicy::Accessory);
    if (shown)
        window_->show();
}

void DesktopApplication::activateIgnoringOtherApps(bool) {
    if (!window_)
        return;
    window_->show();
    window_->raise();
    window_->activateWindow();
}

// The desktop waits for us only inside this call, and not for long.
void DesktopApplication::endSession(QSessionManager& session) {
    sessionEnds_ = true;
    session.setRestartHint(QSessionManager::RestartNever);
    terminate();
    if (!isTerminating())
        return;
    bool mayAsk = session.allowsInteraction();
    QEventLoop wait;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &wait, [this, &wait] {
        if (!isTerminating())
            wait.quit();
    });
    poll.start(20ms);
    QTimer::singleShot(mayAsk ? 60s : 5s, &wait, &QEventLoop::quit);
    wait.exec();
    if (mayAsk) {
        if (!hasTerminated()) {
            session.cancel();
            sessionEnds_ = false;
        }
        session.release();
    }
}

void DesktopApplication::showLastWords(const std::string& text) {
    if (text.empty() || !window_ || sessionEnds_ || wasAskedFromOutside())
        return;
    activateIgnoringOtherApps(true);
    QEventLoop wait;
    QTimer::singleShot(TimeToRead, &wait, &QEventLoop::quit);
    wait.exec();
}

}  // namespace zelvo::platform
