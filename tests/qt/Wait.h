#pragma once

#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

namespace zelvo::test {

/// Runs the loop until the condition holds; false after ten seconds.
template <typename Condition>
bool waitFor(Condition condition) {
    QElapsedTimer elapsed;
    elapsed.start();
    while (!condition()) {
        if (elapsed.hasExpired(10000))
            return false;
        QEventLoop turn;
        QTimer::singleShot(1, &turn, &QEventLoop::quit);
        turn.exec();
    }
    return true;
}

}  // namespace zelvo::test
