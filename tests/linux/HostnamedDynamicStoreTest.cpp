#include "platform/linux/HostnamedDynamicStore.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QTimer>
#include <QVariantMap>
#include <chrono>

#include "tests/support/ChildProcess.h"
#include "tests/support/ManualLoop.h"
#include "tests/support/TemporaryFolder.h"

using namespace zelvo::platform;
using namespace zelvo::test;
using namespace std::chrono_literals;

namespace {

/// org.freedesktop.hostname1 with the properties of systemd-hostnamed, which leaves its first
/// question unanswered.
class SlowHostnamed : public QDBusVirtualObject {
  public:
    explicit SlowHostnamed(const std::string& address)
        : bus_(QDBusConnection::connectToBus(QString::fromStdString(address), "hostnamed")) {
        bus_.registerVirtualObject("/org/freedesktop/hostname1", this);
        bus_.registerService("org.freedesktop.hostname1");
    }
    ~SlowHostnamed() override {
        bus_.unregisterService("org.freedesktop.hostname1");
        QDBusConnection::disconnectFromBus("hostnamed");
    }

    void setPretty(const QString& name) {
        pretty_ = name;
        auto signal = QDBusMessage::createSignal(
            "/org/freedesktop/hostname1", "org.freedesktop.DBus.Properties", "PropertiesChanged");
        signal << QString("org.freedesktop.hostname1") << QVariantMap() << QStringList();
        bus_.send(signal);
    }

    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection&) override {
        if (message.member() == "GetAll" && asked++ > 0)
            bus_.send(message.createReply(
                QVariantMap{{"PrettyHostname", pretty_}, {"StaticHostname", QString("static")}}));
        return true;
    }

    int asked = 0;

  private:
    QString pretty_;
    QDBusConnection bus_;
};

class HostnamedDynamicStoreTest : public testing::Test {
  protected:
    void SetUp() override {
        root.write("etc/machine-info", "PRETTY_HOSTNAME=\"Ann's Desk\"\n");
        root.write("etc/hostname", "# name\nann-desk\n");
    }

    std::unique_ptr<HostnamedDynamicStore> makeStore(const std::string& address) {
        return std::make_unique<HostnamedDynamicStore>(
            loop, log, HostnamedDynamicStore::Options{address, root.path()});
    }
    std::unique_ptr<DynamicStoreConnection> open(DynamicStore& store) {
        auto connection = store.create(
            "test", [this](const std::vector<std::string>& keys) { notices.push_back(keys); });
        connection->setNotificationKeys(
            {store.keyCreateComputerName(), store.keyCreateHostNames()});
        connection->setMainQueue();
        return connection;
    }
    /// Lets events and queued jobs run until the condition holds.
    bool runUntil(const std::function<bool()>& holds, std::chrono::milliseconds limit = 10s) {
        auto end = std::chrono::steady_clock::now() + limit;
        QTimer wake;
        wake.start(limit);
        while (!holds()) {
            if (std::chrono::steady_clock::now() >= end)
                return false;
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
            loop.turn();
        }
        return true;
    }

    int argumentCount = 1;
    char name[5] = "test";
    char* arguments[2] = {name, nullptr};
    QCoreApplication application{argumentCount, arguments};
    TemporaryFolder root;
    ManualLoop loop;
    RecordingLog log;
    std::vector<std::vector<std::string>> notices;
};

}  // namespace

TEST_F(HostnamedDynamicStoreTest, ReadsTheFilesFirst) {
    auto store = makeStore("unix:path=" + root / "no-bus");
    auto connection = open(*store);
    EXPECT_EQ(connection->copyComputerName(), "Ann's Desk");
    auto local = connection->copyLocalHostName();
    ASSERT_TRUE(local);
    EXPECT_EQ(local->find('.'), local->npos);
    EXPECT_TRUE(store->localizedHostName().value_or("").starts_with(*local));
    loop.turn();
    EXPECT_EQ(log.lines.size(), 1U) << "no bus";

    root.write("etc/machine-info", "PRETTY_HOSTNAME=\n");
    EXPECT_EQ(open(*makeStore("none:"))->copyComputerName(), "ann-desk");
    root.write("etc/hostname", "# nothing\n");
    EXPECT_EQ(open(*makeStore("none:"))->copyComputerName(), store->localizedHostName());
    EXPECT_TRUE(notices.empty());
}

TEST_F(HostnamedDynamicStoreTest, FollowsTheServiceWithoutWaitingForIt) {
    ChildProcess bus("exec dbus-daemon --session --nofork --nopidfile --print-address");
    const auto address = bus.readLine();
    SlowHostnamed hostnamed(address);
    auto start = std::chrono::steady_clock::now();
    auto store = makeStore(address);
    auto connection = open(*store);
    loop.turn();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
    ASSERT_TRUE(runUntil([&] { return hostnamed.asked == 1; }));
    EXPECT_EQ(connection->copyComputerName(), "Ann's Desk");

    hostnamed.setPretty("Bob's Desk");
    ASSERT_TRUE(runUntil([&] { return !notices.empty(); }));
    EXPECT_EQ(notices[0], std::vector<std::string>{store->keyCreateComputerName()});
    EXPECT_EQ(connection->copyComputerName(), "Bob's Desk");
    hostnamed.setPretty("");
    ASSERT_TRUE(runUntil([&] { return notices.size() == 2; }));
    EXPECT_EQ(connection->copyComputerName(), "static");

    // No notice when nothing differs, and none after the end.
    hostnamed.setPretty("");
    ASSERT_TRUE(runUntil([&] { return hostnamed.asked == 4; }));
    connection.reset();
    connection = open(*store);
    hostnamed.setPretty("Dee's Desk");
    ASSERT_TRUE(runUntil([&] { return connection->copyComputerName() == "Dee's Desk"; }));
    ASSERT_TRUE(runUntil([&] { return notices.size() == 3; }));
}

TEST_F(HostnamedDynamicStoreTest, FollowsTheKernel) {
    if (::unshare(CLONE_NEWUTS) != 0)
        GTEST_SKIP() << "needs the right to have a host name of its own";
    ASSERT_EQ(::sethostname("first.example", 13), 0);
    root.write("etc/machine-info", "");
    root.write("etc/hostname", "");
    auto store = makeStore("none:");
    auto connection = open(*store);
    EXPECT_EQ(connection->copyLocalHostName(), "first");
    EXPECT_EQ(connection->copyComputerName(), "first.example");
    loop.turn();
    ASSERT_EQ(::sethostname("second", 6), 0);
    ASSERT_TRUE(runUntil([&] { return !notices.empty(); }));
    EXPECT_EQ(connection->copyLocalHostName(), "second");
    EXPECT_EQ(notices[0], (std::vector<std::string>{store->keyCreateComputerName(),
                                                    store->keyCreateHostNames()}));
}
