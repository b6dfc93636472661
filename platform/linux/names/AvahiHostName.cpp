#include "platform/linux/names/AvahiHostName.h"

#include <QDBusError>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>

namespace zelvo::platform {

namespace {

constexpr const char* avahiService = "org.freedesktop.Avahi";
constexpr const char* avahiServer = "org.freedesktop.Avahi.Server";
/// AVAHI_SERVER_RUNNING of avahi-common/defs.h: the name has been found to be free. Before, it is
/// only a try.
constexpr int avahiRunning = 2;
constexpr int avahiTimeout = 5000;

}  // namespace

AvahiHostName::AvahiHostName(const QDBusConnection& bus) : bus_(bus) {
    // Without the service's name, for which Qt would ask the bus and wait. Anybody can send such a
    // signal, so it only makes us ask the service.
    bus_.connect(QString(), "/", avahiServer, "StateChanged", this,
                 SLOT(stateChanged(QDBusMessage)));
    owners_ = std::make_unique<QDBusServiceWatcher>(avahiService, bus_,
                                                    QDBusServiceWatcher::WatchForOwnerChange);
    connect(owners_.get(), &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString&, const QString&, const QString& owner) {
                ++daemon_;
                if (owner.isEmpty())
                    set(std::nullopt);
                else
                    ask("GetState", &AvahiHostName::answeredState);
            });
    ask("GetState", &AvahiHostName::answeredState);
}

AvahiHostName::~AvahiHostName() = default;

void AvahiHostName::stateChanged(const QDBusMessage& message) {
    if (message.arguments().value(0).toInt() == avahiRunning)
        ask("GetState", &AvahiHostName::answeredState);
}

void AvahiHostName::ask(const char* method, Answer answer) {
    auto question = QDBusMessage::createMethodCall(avahiService, "/", avahiServer, method);
    question.setAutoStartService(false);
    auto* call = new QDBusPendingCallWatcher(bus_.asyncCall(question, avahiTimeout), this);
    connect(call, &QDBusPendingCallWatcher::finished, this,
            [this, answer, asked = daemon_](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                if (asked == daemon_)
                    (this->*answer)(finished);
            });
}

void AvahiHostName::answeredState(QDBusPendingCallWatcher* call) {
    QDBusPendingReply<int> reply = *call;
    if (!reply.isError() && reply.value() == avahiRunning)
        ask("GetHostName", &AvahiHostName::answeredName);
}

void AvahiHostName::answeredName(QDBusPendingCallWatcher* call) {
    QDBusPendingReply<QString> reply = *call;
    if (!reply.isError() && !reply.value().isEmpty())
        set(reply.value().toStdString());
}

void AvahiHostName::set(const Name& name) {
    if (name_.value() != name)
        name_.set(name);
}

}  // namespace zelvo::platform
