#pragma once

#include <QString>
#include <functional>

class QObject;

namespace zelvo::platform {

/// Whether the desktop has a hand-off for mail (xdg-email).
bool hasMailProgram();

/// Opens a new mail with these texts in the user's mail program, addressed by the user. `refused`
/// as in handOver.
void composeMail(const QString& subject, const QString& body, const QObject* receiver,
                 std::function<void()> refused);

}  // namespace zelvo::platform
