#include <gtest/gtest.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QTimer>
#include <chrono>
#include <filesystem>

#include "platform/linux/HostnamedDynamicStore.h"
#include "tests/linux/ChildProcess.h"
#include "tests/linux/PrivateBus.h"
#include "tests/linux/TemporaryFolder.h"
#include "tests/support/ManualLoop.h"

using namespace zelvo::platform;
using zelvo::test::ChildProcess;
using zelvo::test::PrivateBus;
using zelvo::test::TemporaryFolder;
using namespace std::chrono_literals;

namespace {

constexpr const char* avahiDaemon = "/usr/sbin/avahi-daemon";
constexpr const char* hostnamedDaemon = "/lib/systemd/systemd-hostnamed";

/// The daemons themselves, in namespaces that end with the test.
class RealHostNamesTest : public testing::Test {
  protected:
    void SetUp() override {
        if (::geteuid() != 0 || std::system("unshare -nmpf --kill-child true 2>/dev/null") != 0)
            GTEST_SKIP() << "needs root and namespaces";
        root.write("etc/machine-info", "PRETTY_HOSTNAME=\"Ann's Desk\"\n");
        root.write("etc/hostname", "ann-desk\n");
        for (const auto* name : {"passwd", "group"})
            std::filesystem::copy_file(std::string("/etc/") + name, root / "etc/" + name);
        store = std::make_unique<HostnamedDynamicStore>(
            loop, log, HostnamedDynamicStore::Options{bus.address, root.path()});
        connection = store->create(
            "test", [this](const std::vector<std::string>& keys) { notices.push_back(keys); });
        connection->setNotificationKeys(
            {store->keyCreateComputerName(), store->keyCreateHostNames()});
        connection->setMainQueue();
        loop.turn();
    }

    std::string inNamespace(const std::string& script) const {
        return "exec unshare -nmpf --kill-child sh -ec '" + script + "' >" + root / "output" +
               " 2>&1";
    }
    /// Avahi under the name "desk" on the link `device`.
    std::string avahi(const std::string& device, const std::string& address,
                      const std::string& busAddress) {
        auto file = root.write("avahi.conf",
                               "[server]\nhost-name=desk\nuse-ipv6=no\n"
                               "[publish]\npublish-hinfo=no\npublish-workstation=no\n");
        return "mount -t tmpfs none /run; mkdir /run/avahi-daemon; ip address add " + address +
               "/24 dev " + device + "; DBUS_SYSTEM_BUS_ADDRESS=" + busAddress + " exec " +
               avahiDaemon + " -f " + file +
               " --no-drop-root --no-chroot --no-rlimits --no-proc-title";
    }
    bool runUntil(const std::function<bool()>& holds, std::chrono::milliseconds limit = 20s) {
        auto end = std::chrono::steady_clock::now() + limit;
        QTimer wake;
        wake.start(50);
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
    PrivateBus bus;
    zelvo::test::ManualLoop loop;
    zelvo::test::RecordingLog log;
    std::vector<std::vector<std::string>> notices;
    std::unique_ptr<HostnamedDynamicStore> store;
    std::unique_ptr<DynamicStoreConnection> connection;
};

}  // namespace

TEST_F(RealHostNamesTest, APrettyNameLeadsToOneNotice) {
    if (::access(hostnamedDaemon, X_OK) != 0)
        GTEST_SKIP() << "needs systemd-hostnamed";
    ChildProcess hostnamed(
        "DBUS_SYSTEM_BUS_ADDRESS=" + bus.address + " " +
        inNamespace("mount --bind " + root / "etc /etc; exec " + hostnamedDaemon));
    auto client = QDBusConnection::connectToBus(QString::fromStdString(bus.address), "client");
    ASSERT_TRUE(runUntil([&] {
        return client.interface()->isServiceRegistered("org.freedesktop.hostname1").value();
    })) << root.read("output");
    EXPECT_TRUE(notices.empty());

    auto question =
        QDBusMessage::createMethodCall("org.freedesktop.hostname1", "/org/freedesktop/hostname1",
                                       "org.freedesktop.hostname1", "SetPrettyHostname");
    question << QString("Bob's Desk") << false;
    auto answer = client.call(question);
    ASSERT_EQ(answer.type(), QDBusMessage::ReplyMessage) << qPrintable(answer.errorMessage());
    ASSERT_TRUE(runUntil([&] { return !notices.empty(); }));
    EXPECT_EQ(connection->copyComputerName(), "Bob's Desk");
    EXPECT_EQ(notices.size(), 1U);
    EXPECT_EQ(notices[0], std::vector{store->keyCreateComputerName()});
    QDBusConnection::disconnectFromBus("client");
}

TEST_F(RealHostNamesTest, ANameThatIsTakenLeadsToOneNotice) {
    if (::access(avahiDaemon, X_OK) != 0)
        GTEST_SKIP() << "needs avahi-daemon";
    PrivateBus neighboursBus;
    auto kernelName = connection->copyLocalHostName();
    auto wait = [&](const std::string& condition) {
        return "until " + condition + "; do sleep 0.05; done; ";
    };
    // Both have the name already when the cable is plugged in, at this host's end, which then is
    // the one to yield.
    root.write("host.sh", "touch " + root / "there; " +
                              wait("ip link show zelvo1 >/dev/null 2>&1") + "{ " +
                              wait("[ -e " + root / "plugged ]") + "ip link set zelvo1 up; } & " +
                              avahi("zelvo1", "10.9.0.1", bus.address));
    root.write("neighbour.sh", "ip link add zelvo0 type veth peer name zelvo1; unshare -nm sh -e " +
                                   root / "host.sh & " + wait("[ -e " + root / "there ]") +
                                   "ip link set zelvo1 netns $!; ip link set zelvo0 up; " +
                                   avahi("zelvo0", "10.9.0.2", neighboursBus.address));
    auto both = std::make_unique<ChildProcess>(inNamespace("exec sh -e " + root / "neighbour.sh"));
    auto neighbour =
        QDBusConnection::connectToBus(QString::fromStdString(neighboursBus.address), "neighbour");
    ASSERT_TRUE(runUntil([&] {
        return connection->copyLocalHostName() == "desk" && notices.size() == 1 &&
               neighbour.interface()->isServiceRegistered("org.freedesktop.Avahi").value();
    })) << root.read("output");
    QDBusConnection::disconnectFromBus("neighbour");
    root.write("plugged", "");
    ASSERT_TRUE(runUntil([&] { return connection->copyLocalHostName() == "desk-2"; }))
        << root.read("output");
    EXPECT_EQ(notices.size(), 2U);
    EXPECT_EQ(notices[1], std::vector{store->keyCreateHostNames()});

    // Without the daemon the kernel's name is the host's again.
    both.reset();
    ASSERT_TRUE(runUntil([&] { return connection->copyLocalHostName() == kernelName; }));
    ASSERT_TRUE(runUntil([&] { return notices.size() == 3; }));
}
