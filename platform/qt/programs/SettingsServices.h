#pragma once

#include <QDBusConnection>
#include <memory>
#include <vector>

#include "platform/Workspace.h"

namespace zelvo::platform {

/// GNOME's and KDE's settings windows, as far as they are open, by their names on the user's
/// message bus. Asks the bus and waits, not for long. Any thread.
std::vector<std::unique_ptr<RunningApplication>> settingsServices(const QDBusConnection& bus);

}  // namespace zelvo::platform
