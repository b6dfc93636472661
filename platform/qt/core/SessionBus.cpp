#include "platform/qt/core/SessionBus.h"

#include <QByteArray>
#include <QByteArrayList>

#include "platform/qt/core/LocalSocket.h"

namespace zelvo::platform {

namespace {

constexpr const char* SessionBus = "DBUS_SESSION_BUS_ADDRESS";
constexpr const char* SystemBus = "DBUS_SYSTEM_BUS_ADDRESS";

/// Where the library looks when the environment is silent.
QByteArray usualAddress(const char* variable) {
    return variable == SystemBus ? QByteArray("unix:path=/run/dbus/system_bus_socket")
                                 : "unix:path=" + qgetenv("XDG_RUNTIME_DIR") + "/bus";
}

/// What stands for the key in one address, such as "unix:path=/run/user/1000/bus,guid=0123".
QByteArray valueOf(const QByteArray& key, const QByteArray& address) {
    if (!address.startsWith("unix:"))
        return {};
    for (const auto& pair : address.mid(5).split(',')) {
        if (pair.startsWith(key + '='))
            return QByteArray::fromPercentEncoding(pair.mid(key.size() + 1));
    }
    return {};
}

}  // namespace

bool isMuteBus(const QByteArray& address, std::chrono::milliseconds patience) {
    // The library takes the first that can be connected to.
    for (const auto& place : address.split(';')) {
        auto name = valueOf("abstract", place);
        auto path = valueOf("runtime", place) == "yes" ? qgetenv("XDG_RUNTIME_DIR") + "/bus"
                                                       : valueOf("path", place);
        if (name.isEmpty() && path.isEmpty())
            continue;
        LocalSocket socket(name.isEmpty() ? path : name, !name.isEmpty(), patience);
        if (socket.isKeptWaiting())
            return true;
        // Asks for the ways to log in, which every bus tells; the zero begins the conversation.
        if (socket.isConnected())
            return !socket.answers(QByteArray("\0AUTH\r\n", 7));
    }
    return false;
}

QStringList passOverMuteBuses(std::chrono::milliseconds patience) {
    QStringList mute;
    for (const auto* variable : {SessionBus, SystemBus}) {
        auto address = qgetenv(variable);
        if (!isMuteBus(address.isEmpty() ? usualAddress(variable) : address, patience))
            continue;
        // No kind of address that a library knows, so that each gives up at once.
        qputenv(variable, "disabled:");
        mute << variable;
    }
    return mute;
}

}  // namespace zelvo::platform
