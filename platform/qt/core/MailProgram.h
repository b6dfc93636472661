#pragma once

#include <QString>

namespace zelvo::platform {

/// Whether the desktop has a hand-off for mail (xdg-email).
bool hasMailProgram();

/// Opens a new mail with these texts in the user's mail program, addressed by the user. False when
/// nothing could be started.
bool composeMail(const QString& subject, const QString& body);

}  // namespace zelvo::platform
