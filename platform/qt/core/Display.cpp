#include "platform/qt/core/Display.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QDir>
#include <QLibraryInfo>
#include <QString>
#include <cstddef>
#include <cstring>

namespace zelvo::platform {

namespace {

bool accepts(QByteArray path, bool isAbstract) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (isAbstract)
        path.prepend('\0');
    if (path.size() >= static_cast<qsizetype>(sizeof address.sun_path))
        return false;
    std::memcpy(address.sun_path, path.constData(), static_cast<std::size_t>(path.size()));
    int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0)
        return false;
    auto length = offsetof(sockaddr_un, sun_path) + static_cast<std::size_t>(path.size()) +
                  (isAbstract ? 0 : 1);
    bool connected = ::connect(descriptor, reinterpret_cast<const sockaddr*>(&address),
                               static_cast<socklen_t>(length)) == 0;
    ::close(descriptor);
    return connected;
}

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
    return accepts(path, true) || accepts(path, false);
}

bool waylandIsThere() {
    auto name = qgetenv("WAYLAND_DISPLAY");
    if (name.isEmpty())
        return false;
    auto path = name.startsWith('/') ? name : qgetenv("XDG_RUNTIME_DIR") + '/' + name;
    QDir plugins(QLibraryInfo::path(QLibraryInfo::PluginsPath) + "/platforms");
    return !plugins.entryList({"libqwayland*"}).isEmpty() && accepts(path, false);
}

}  // namespace

bool displayIsThere() {
    return !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") || x11IsThere() || waylandIsThere();
}

}  // namespace zelvo::platform
