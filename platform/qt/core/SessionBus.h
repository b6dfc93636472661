#pragma once

#include <QString>
#include <QStringList>
#include <chrono>

namespace zelvo::platform {

/// Qt connects to a message bus on the thread that asks for it and waits there without a limit, for
/// each of its own parts too (accessibility, input methods, the tray). So the session's and the
/// system's bus are asked once, before anything else does, whether they speak. One that takes
/// connections and says nothing within the patience is switched off in the environment, for this
/// process and its children: from then on `QDBusConnection::sessionBus()` and `systemBus()` never
/// wait, on any thread, and are not connected where there is no bus. Gives the environment
/// variables that were switched off.
///
/// Changes the environment: call it first of all, before there is another thread.
QStringList passOverMuteBuses(std::chrono::milliseconds patience = std::chrono::milliseconds(300));

/// Whether something at the address listens but does not speak within the patience. An address that
/// is not of this machine's sockets is believed to speak.
bool isMuteBus(const QByteArray& address, std::chrono::milliseconds patience);

}  // namespace zelvo::platform
