#include "platform/qt/programs/SettingsServices.h"

#include <gtest/gtest.h>

#include <QDBusMessage>
#include <QDBusVirtualObject>

#include "platform/qt/core/SessionBus.h"
#include "tests/qt/Wait.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace zelvo::platform {
namespace {

/// A settings window that tells how it was asked to quit.
class Settings final : public QDBusVirtualObject {
  public:
    Settings(const QString& address, const char* name)
        : bus_(QDBusConnection::connectToBus(address, name)) {
        bus_.registerVirtualObject("/", this, QDBusConnection::SubPath);
        EXPECT_TRUE(bus_.registerService(name));
    }
    ~Settings() override { QDBusConnection::disconnectFromBus(bus_.name()); }

    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection&) override {
        asked += message.path() + " " + message.interface() + "." + message.member() + "(" +
                 message.signature() + ")" + message.arguments().value(0).toString();
        return true;
    }
    QString asked;

  private:
    QDBusConnection bus_;
};

TEST(SettingsServices, AreAskedToQuitByName) {
    test::TemporaryFolder folder;
    test::ChildProcess daemon(
        "exec dbus-daemon --session --nofork --nopidfile --print-address --address=unix:dir=" +
        folder.path());
    auto address = QString::fromStdString(daemon.readLine());
    ASSERT_NE(address, "");
    const auto places = "unix:path=/nowhere;" + address.toUtf8();
    daemon.signal(SIGSTOP);
    EXPECT_TRUE(isMuteBus(places, std::chrono::milliseconds(50)));
    daemon.signal(SIGCONT);
    EXPECT_FALSE(isMuteBus(places, std::chrono::seconds(10)));
    auto bus = QDBusConnection::connectToBus(address, "workspace");
    EXPECT_TRUE(settingsServices(bus).empty());
    Settings kde(address, "org.kde.systemsettings");
    Settings gnome(address, "org.gnome.Settings");
    Settings other(address, "org.gnome.Nautilus");
    auto running = settingsServices(bus);
    ASSERT_EQ(running.size(), 2U);
    for (const auto& application : running) {
        EXPECT_EQ(application->bundleIdentifier(), "com.apple.systempreferences");
        application->terminate();
    }
    EXPECT_TRUE(test::waitFor([&] { return kde.asked != "" && gnome.asked != ""; }));
    EXPECT_EQ(gnome.asked, "/org/gnome/Settings org.gtk.Actions.Activate(sava{sv})quit");
    EXPECT_EQ(kde.asked, "/MainApplication org.qtproject.Qt.QCoreApplication.quit()");
    EXPECT_EQ(other.asked, "");
    QDBusConnection::disconnectFromBus("workspace");
    EXPECT_TRUE(settingsServices(QDBusConnection("none")).empty());
}

}  // namespace
}  // namespace zelvo::platform
