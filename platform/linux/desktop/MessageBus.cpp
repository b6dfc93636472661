#include "platform/linux/desktop/MessageBus.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QEventLoop>
#include <QUuid>
#include <utility>

namespace zelvo::platform {

namespace {

constexpr int answerLimitMilliseconds = 300;

constexpr BusCall busItself(const char* method) {
    return {"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method};
}

QString usualPlace(MessageBus::Kind kind) {
    auto isSystem = kind == MessageBus::Kind::System;
    auto place =
        qEnvironmentVariable(isSystem ? "DBUS_SYSTEM_BUS_ADDRESS" : "DBUS_SESSION_BUS_ADDRESS");
    if (!place.isEmpty())
        return place;
    return isSystem ? "unix:path=/run/dbus/system_bus_socket"
                    : "unix:path=" + qEnvironmentVariable("XDG_RUNTIME_DIR") + "/bus";
}

}  // namespace

// As to a peer: what Qt takes for a bus it greets itself, and waits for the answer without a limit.
MessageBus::MessageBus(Kind kind, const std::string& address, std::function<void()> noticed)
    : noticed_(std::move(noticed)),
      bus_(QDBusConnection::connectToPeer(
          address.empty() ? usualPlace(kind) : QString::fromStdString(address),
          "zelvo-desktop-" + QUuid::createUuid().toString(QUuid::WithoutBraces))) {
    isGreeted_ = bus_.isConnected() && ask<QString>(busItself("Hello"));
}

MessageBus::~MessageBus() {
    auto name = bus_.name();
    bus_ = QDBusConnection(QString());
    QDBusConnection::disconnectFromPeer(name);
}

void MessageBus::follow(const BusCall& call) {
    bus_.connect(QString(), call.path, call.interface, QString(), this, SLOT(notice()));
    // Only of the service, whoever else sends such a signal.
    auto rule = QStringLiteral("type='signal',sender='%1',path='%2',interface='%3'")
                    .arg(call.service, call.path, call.interface);
    answerTo(busItself("AddMatch"), {rule});
}

QDBusPendingCall MessageBus::answerTo(const BusCall& call, const QVariantList& arguments) {
    auto question =
        QDBusMessage::createMethodCall(call.service, call.path, call.interface, call.method);
    question.setArguments(arguments);
    // A service that would have to be started says what its files say.
    question.setAutoStartService(false);
    auto pending = bus_.asyncCall(question, answerLimitMilliseconds);
    QDBusPendingCallWatcher watcher(pending);
    QEventLoop waiting;
    QObject::connect(&watcher, &QDBusPendingCallWatcher::finished, &waiting, &QEventLoop::quit);
    if (!watcher.isFinished())
        waiting.exec();
    return pending;
}

}  // namespace zelvo::platform
