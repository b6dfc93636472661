#include "platform/linux/HostnamedDynamicStore.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QTimer>
#include <QVariantMap>
#include <chrono>

#include "tests/linux/FakeHostnamed.h"
#include "tests/linux/PrivateBus.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/ManualLoop.h"

using namespace zelvo::platform;
using zelvo::test::FakeHostnamed;
using zelvo::test::PrivateBus;
using zelvo::test::TemporaryFolder;
using namespace std::chrono_literals;

namespace {

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
    zelvo::test::ManualLoop loop;
    zelvo::test::RecordingLog log;
    std::vector<std::vector<std::string>> notices;
};

}  // namespace

TEST_F(HostnamedDynamicStoreTest, ReadsTheFilesFirst) {
    auto start = std::chrono::steady_clock::now();
    auto store = makeStore("unix:path=" + root / "no-bus");
    auto connection = open(*store);
    EXPECT_EQ(connection->copyComputerName(), "Ann's Desk");
    auto local = connection->copyLocalHostName();
    ASSERT_TRUE(local);
    EXPECT_EQ(local->find('.'), local->npos);
    EXPECT_TRUE(store->localizedHostName().value_or("").starts_with(*local));
    loop.turn();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 500ms);
    EXPECT_EQ(log.lines.size(), 1U) << "no bus";

    root.write("etc/machine-info", "PRETTY_HOSTNAME=\n");
    EXPECT_EQ(open(*makeStore("none:"))->copyComputerName(), "ann-desk");
    root.write("etc/hostname", "# nothing\n");
    EXPECT_EQ(open(*makeStore("none:"))->copyComputerName(), store->localizedHostName());
    EXPECT_TRUE(notices.empty());
}

TEST_F(HostnamedDynamicStoreTest, FollowsTheService) {
    PrivateBus bus;
    auto store = makeStore(bus.address);
    auto connection = open(*store);
    const std::vector<std::string> computer{store->keyCreateComputerName()};
    loop.turn();
    ASSERT_TRUE(log.lines.empty()) << log.lines[0];

    // It comes later, changes a name, goes, and comes back with another one.
    auto hostnamed = std::make_unique<FakeHostnamed>(bus.address, "Ann's Desk");
    hostnamed->setPretty("Bob's Desk");
    ASSERT_TRUE(runUntil([&] { return connection->copyComputerName() == "Bob's Desk"; }));
    ASSERT_TRUE(runUntil([&] { return !notices.empty(); }));
    EXPECT_EQ(notices.back(), computer);
    hostnamed->setPretty("Cem's Desk");
    ASSERT_TRUE(runUntil([&] { return connection->copyComputerName() == "Cem's Desk"; }));
    hostnamed.reset();
    hostnamed = std::make_unique<FakeHostnamed>(bus.address, "");
    ASSERT_TRUE(runUntil([&] { return connection->copyComputerName() == "static"; }));
    ASSERT_TRUE(runUntil([&] { return notices.size() == 3; }));

    // No notice when nothing differs, and none after the end.
    auto asked = hostnamed->asked();
    hostnamed->setPretty("");
    ASSERT_TRUE(runUntil([&] { return hostnamed->asked() > asked; }));
    connection.reset();
    hostnamed->setPretty("Dee's Desk");
    auto other = open(*store);
    ASSERT_TRUE(runUntil([&] { return other->copyComputerName() == "Dee's Desk"; }));
    ASSERT_TRUE(runUntil([&] { return notices.size() == 4; }));
}

TEST_F(HostnamedDynamicStoreTest, DoesNotWaitForAServiceThatHangs) {
    PrivateBus bus;
    FakeHostnamed hostnamed(bus.address, "Late", FakeHostnamed::Manner::Hangs);
    auto start = std::chrono::steady_clock::now();
    auto store = makeStore(bus.address);
    auto connection = open(*store);
    loop.turn();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
    EXPECT_EQ(connection->copyComputerName(), "Ann's Desk");
    ASSERT_TRUE(runUntil([&] { return hostnamed.asked() > 0; }));
    hostnamed.answerNow();
    EXPECT_TRUE(runUntil([&] { return connection->copyComputerName() == "Late"; }));
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
