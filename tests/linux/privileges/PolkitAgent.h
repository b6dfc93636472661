#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusVirtualObject>
#include <QUuid>
#include <QVariantMap>
#include <fstream>
#include <string>

namespace zelvo::test {

/// Polkit's form of a subject and of an identity.
struct Party {
    QString kind;
    QVariantMap details;
};

inline QDBusArgument& operator<<(QDBusArgument& argument, const Party& party) {
    argument.beginStructure();
    argument << party.kind << party.details;
    argument.endStructure();
    return argument;
}
inline const QDBusArgument& operator>>(const QDBusArgument& argument, Party& party) {
    argument.beginStructure();
    argument >> party.kind >> party.details;
    argument.endStructure();
    return argument;
}

/// What a desktop has to ask the user for polkit. Registered by root, who may do so for others and
/// alone may say that a password was right. Answers while the event loop runs.
class PolkitAgent : public QDBusVirtualObject {
  public:
    /// Answers questions for what that process of that user wants: with a right password, or by
    /// dismissing them.
    PolkitAgent(pid_t process, uid_t user, bool grants, const char* locale) : grants_(grants) {
        qDBusRegisterMetaType<Party>();
        bus_.registerVirtualObject("/agent", this);
        // The start is the 22nd value, the second the name, which has no blanks.
        std::ifstream file("/proc/" + std::to_string(process) + "/stat");
        std::string start;
        for (int number = 0; number < 22; ++number)
            file >> start;
        Party subject{"unix-process",
                      {{"pid", static_cast<uint>(process)},
                       {"start-time", qulonglong{std::stoull(start)}},
                       {"uid", static_cast<int>(user)}}};
        auto reply = call("RegisterAuthenticationAgent",
                          {QVariant::fromValue(subject), QString(locale), QString("/agent")});
        EXPECT_EQ(reply.errorMessage().toStdString(), "");
    }
    PolkitAgent(const PolkitAgent&) = delete;
    PolkitAgent& operator=(const PolkitAgent&) = delete;
    ~PolkitAgent() override { QDBusConnection::disconnectFromBus(bus_.name()); }

    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection&) override {
        if (message.member() != "BeginAuthentication")
            return false;
        const auto arguments = message.arguments();
        questions +=
            (arguments[0].toString() + ": " + arguments[1].toString() + "\n").toStdString();
        if (!grants_)
            return bus_.send(
                message.createErrorReply("org.freedesktop.PolicyKit1.Error.Cancelled", "No."));
        call("AuthenticationAgentResponse2",
             {0U, arguments[4], QVariant::fromValue(Party{"unix-user", {{"uid", 0U}}})});
        return bus_.send(message.createReply());
    }

    /// The action and the text of each question, one a line.
    std::string questions;

  private:
    QDBusMessage call(const char* member, const QVariantList& arguments) {
        const QString name = "org.freedesktop.PolicyKit1";
        auto message = QDBusMessage::createMethodCall(name, "/org/freedesktop/PolicyKit1/Authority",
                                                      name + ".Authority", member);
        message.setArguments(arguments);
        return bus_.call(message);
    }

    const bool grants_;
    QDBusConnection bus_ =
        QDBusConnection::connectToBus(QDBusConnection::SystemBus, QUuid::createUuid().toString());
};

}  // namespace zelvo::test
