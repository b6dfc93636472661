#include "platform/qt/core/Display.h"

#include <QDir>
#include <QLibraryInfo>
#include <QString>

#include "platform/qt/core/LocalSocket.h"

namespace zelvo::platform {

namespace {

bool waylandIsThere() {
    auto name = qgetenv("WAYLAND_DISPLAY");
    if (name.isEmpty())
        return false;
    auto path = name.startsWith('/') ? name : qgetenv("XDG_RUNTIME_DIR") + '/' + name;
    QDir plugins(QLibraryInfo::path(QLibraryInfo::PluginsPath) + "/platforms");
    return !plugins.entryList({"libqwayland*"}).isEmpty() && LocalSocket(path, false).isConnected();
}

}  // namespace

// A display on this machine is tried, since the toolkit ends the process where there is none. One
// on another machine (a host name before the colon) is believed.
bool x11IsThere() {
    auto name = qgetenv("DISPLAY");
    auto colon = name.lastIndexOf(':');
    if (colon < 0)
        return false;
    if (colon > 0 && !name.startsWith("unix"))
        return true;
    auto number = name.mid(colon + 1);
    number = number.left(number.contains('.') ? number.indexOf('.') : number.size());
    auto path = "/tmp/.X11-unix/X" + number;
    return LocalSocket(path, true).isConnected() || LocalSocket(path, false).isConnected();
}

bool displayIsThere() {
    return !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") || x11IsThere() || waylandIsThere();
}

}  // namespace zelvo::platform
