#pragma once

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTimer>

namespace zelvo::test {

/// Handles events until the condition holds; false after ten seconds.
template <typename Condition>
bool waitFor(Condition condition) {
    QElapsedTimer elapsed;
    elapsed.start();
    QTimer tick;
    tick.start(1);
    while (!condition()) {
        if (elapsed.hasExpired(10000))
            return false;
        // Not a loop of its own: none starts any more once the application has been told to end.
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

}  // namespace zelvo::test
