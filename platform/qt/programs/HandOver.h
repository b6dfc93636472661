#pragma once

#include <QStringList>
#include <functional>

class QObject;

namespace zelvo::platform {

/// Hands something to the first of the commands (a program and its arguments) that takes it, and
/// returns at once. `refused` is called on the main thread, once, when none could be started or
/// each ended in failure; never when `receiver` has been destroyed meanwhile. What a command opens
/// outlives the application.
void handOver(QList<QStringList> commands, const QObject* receiver, std::function<void()> refused);

}  // namespace zelvo::platform
