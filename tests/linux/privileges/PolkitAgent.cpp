#include "tests/linux/privileges/PolkitAgent.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusVirtualObject>
#include <QVariantMap>
#include <array>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include "tests/linux/privileges/PolkitMachine.h"

namespace zelvo::test {

/// Polkit's form of a subject and of an identity.
struct Party {
    QString kind;
    QVariantMap details;
};

QDBusArgument& operator<<(QDBusArgument& argument, const Party& party) {
    argument.beginStructure();
    argument << party.kind << party.details;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, Party& party) {
    argument.beginStructure();
    argument >> party.kind >> party.details;
    argument.endStructure();
    return argument;
}

namespace {

QDBusMessage callAuthority(QDBusConnection bus, const char* member, const QVariantList& arguments) {
    auto call = QDBusMessage::createMethodCall("org.freedesktop.PolicyKit1",
                                               "/org/freedesktop/PolicyKit1/Authority",
                                               "org.freedesktop.PolicyKit1.Authority", member);
    call.setArguments(arguments);
    return bus.call(call);
}

void report(int pipe, const QString& line) {
    auto text = line.toStdString() + "\n";
    (void)!::write(pipe, text.data(), text.size());
}

class Agent : public QDBusVirtualObject {
  public:
    Agent(uid_t user, PolkitAgent::Manner manner, const QDBusConnection& root, int reports)
        : user_(user), manner_(manner), root_(root), reports_(reports) {}

    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& bus) override {
        if (message.member() != "BeginAuthentication")
            return false;
        const auto arguments = message.arguments();
        report(reports_, arguments[0].toString() + ": " + arguments[1].toString());
        if (manner_ == PolkitAgent::Manner::Dismisses)
            return bus.send(
                message.createErrorReply("org.freedesktop.PolicyKit1.Error.Cancelled", "No."));
        // Root alone may say so, once it has checked the password.
        if (manner_ == PolkitAgent::Manner::Grants)
            callAuthority(
                root_, "AuthenticationAgentResponse2",
                {user_, arguments[4], QVariant::fromValue(Party{"unix-user", {{"uid", 0U}}})});
        return bus.send(message.createReply());
    }

  private:
    const uint user_;
    const PolkitAgent::Manner manner_;
    const QDBusConnection root_;
    const int reports_;
};

qulonglong startOf(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string text{std::istreambuf_iterator<char>(file), {}};
    std::istringstream fields(text.substr(text.rfind(')') + 1));
    std::string field;
    // The 22nd of all, the first of these being the third.
    for (int number = 3; number <= 22; ++number)
        fields >> field;
    return std::stoull(field);
}

[[noreturn]] void serve(pid_t process, uid_t user, PolkitAgent::Manner manner, const char* locale,
                        int reports) {
    int argc = 1;
    std::string name = "agent";
    std::array<char*, 2> argv{name.data(), nullptr};
    QCoreApplication application(argc, argv.data());
    qDBusRegisterMetaType<Party>();
    auto root = QDBusConnection::connectToBus(QDBusConnection::SystemBus, "root");
    if (::seteuid(user) != 0)
        ::_exit(1);
    auto own = QDBusConnection::connectToBus(QDBusConnection::SystemBus, "own");
    Agent agent(user, manner, root, reports);
    own.registerVirtualObject("/agent", &agent);
    Party subject{"unix-process",
                  {{"pid", static_cast<uint>(process)},
                   {"start-time", startOf(process)},
                   {"uid", static_cast<int>(user)}}};
    QDBusMessage reply;
    // Until the process has become the user, which it does only after it has been started.
    for (int tries = 0; tries < 200; ++tries) {
        reply = callAuthority(own, "RegisterAuthenticationAgent",
                              {QVariant::fromValue(subject), QString(locale), QString("/agent")});
        if (!reply.errorMessage().contains("differs"))
            break;
        ::usleep(10'000);
    }
    report(reports, reply.errorMessage());
    QCoreApplication::exec();
    ::_exit(0);
}

}  // namespace

PolkitAgent::PolkitAgent(pid_t process, uid_t user, Manner manner, const char* locale) {
    std::array<int, 2> pipe;
    EXPECT_EQ(::pipe2(pipe.data(), O_CLOEXEC), 0);
    agent_ = ::fork();
    if (agent_ == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        serve(process, user, manner, locale, pipe[1]);
    }
    ::close(pipe[1]);
    reports_ = pipe[0];
    std::string error;
    char c = 0;
    while (::read(reports_, &c, 1) == 1 && c != '\n')
        error += c;
    EXPECT_EQ(c, '\n');
    EXPECT_EQ(error, "");
}

std::string PolkitAgent::questions() {
    if (agent_ <= 0)
        return "";
    ::kill(agent_, SIGKILL);
    ::waitpid(agent_, nullptr, 0);
    agent_ = -1;
    auto text = readToEnd(reports_);
    ::close(reports_);
    return text;
}

}  // namespace zelvo::test
