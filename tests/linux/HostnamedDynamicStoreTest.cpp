#include "platform/linux/names/HostnamedDynamicStore.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <QCoreApplication>
#include <chrono>

#include "tests/support/ManualLoop.h"
#include "tests/support/TemporaryFolder.h"

using namespace zelvo::platform;
using namespace zelvo::test;
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
    const auto end = std::chrono::steady_clock::now() + 10s;
    while (notices.empty() && std::chrono::steady_clock::now() < end) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 100);
        loop.turn();
    }
    EXPECT_EQ(connection->copyLocalHostName(), "second");
    ASSERT_EQ(notices.size(), 1U);
    EXPECT_EQ(notices[0], (std::vector<std::string>{store->keyCreateComputerName(),
                                                    store->keyCreateHostNames()}));
}
