#include "platform/linux/names/HostnamedDynamicStore.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QUuid>
#include <chrono>
#include <optional>

#include "tests/support/ChildProcess.h"
#include "tests/support/ManualLoop.h"
#include "tests/support/TemporaryFolder.h"

using namespace zelvo::platform;
using namespace zelvo::test;
using namespace std::literals;

namespace {

using Keys = std::vector<std::string>;

/// An Avahi daemon, as far as it is asked.
class Avahi : public QDBusVirtualObject {
  public:
    /// Without a name it keeps the question.
    explicit Avahi(const std::string& address, std::string name = "")
        : name_(std::move(name)),
          bus_(QDBusConnection::connectToBus(QString::fromStdString(address),
                                             QUuid::createUuid().toString())) {
        bus_.registerVirtualObject("/", this);
        EXPECT_TRUE(bus_.registerService(service));
    }
    ~Avahi() override { QDBusConnection::disconnectFromBus(bus_.name()); }

    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection&) override {
        if (message.member() == "GetState")
            return bus_.send(message.createReply(2));
        asked = message;
        if (!name_.empty())
            answer(name_);
        return true;
    }
    void answer(const std::string& name) {
        bus_.send(asked->createReply(QString::fromStdString(name)));
        // A question of our own: once it is answered, the bus has passed on what came before.
        bus_.interface()->isServiceRegistered(service);
    }
    void rename(const std::string& name) {
        name_ = name;
        auto signal = QDBusMessage::createSignal("/", QString(service) + ".Server", "StateChanged");
        signal << 2 << QString();
        bus_.send(signal);
    }
    void leave() { bus_.unregisterService(service); }

    std::optional<QDBusMessage> asked;

  private:
    static constexpr const char* service = "org.freedesktop.Avahi";

    std::string name_;
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
        auto connection =
            store.create("test", [this](const Keys& keys) { notices.push_back(keys); });
        connection->setNotificationKeys(
            {store.keyCreateComputerName(), store.keyCreateHostNames()});
        connection->setMainQueue();
        return connection;
    }
    void waitFor(const std::function<bool()>& condition, int line = __builtin_LINE()) {
        const auto end = std::chrono::steady_clock::now() + 10s;
        while (!condition() && std::chrono::steady_clock::now() < end) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 100);
            loop.turn();
        }
        EXPECT_TRUE(condition()) << "line " << line;
    }

    int argumentCount = 1;
    char name[5] = "test";
    char* arguments[2] = {name, nullptr};
    QCoreApplication application{argumentCount, arguments};
    TemporaryFolder root;
    ManualLoop loop;
    RecordingLog log;
    std::vector<Keys> notices;
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
    for (const auto& noText : {"B\xFCro"s, "a\0b"s}) {
        root.write("etc/machine-info", "PRETTY_HOSTNAME=\"" + noText + "\"\n");
        EXPECT_EQ(open(*makeStore("none:"))->copyComputerName(), "ann-desk");
    }
    for (const auto& noName : {"# nothing\n"s, "b\xFCro\n"s}) {
        root.write("etc/hostname", noName);
        EXPECT_EQ(open(*makeStore("none:"))->copyComputerName(), store->localizedHostName());
    }
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
    const Keys bothKeys{store->keyCreateComputerName(), store->keyCreateHostNames()};
    waitFor([&] { return notices == std::vector<Keys>{bothKeys}; });
    EXPECT_EQ(connection->copyLocalHostName(), "second");

    ASSERT_EQ(::sethostname("b\xFCro.example", 12), 0);
    waitFor([&] { return notices == std::vector<Keys>{bothKeys, bothKeys}; });
    EXPECT_EQ(connection->copyLocalHostName(), std::nullopt);
    EXPECT_EQ(connection->copyComputerName(), std::nullopt);
    EXPECT_EQ(store->localizedHostName(), std::nullopt);
    ASSERT_EQ(::sethostname("kernel", 6), 0);
    waitFor([&] { return store->localizedHostName() == "kernel"; });
}

TEST_F(HostnamedDynamicStoreTest, ForgetsWhatAnEarlierAvahiSaid) {
    ChildProcess bus("exec dbus-daemon --session --nofork --nopidfile --print-address 2>/dev/null");
    auto address = bus.readLine();
    auto store = makeStore(address);
    auto connection = open(*store);
    auto announces = [&](const std::string& name) {
        waitFor([&] { return connection->copyLocalHostName() == name; });
    };
    loop.turn();
    Avahi first(address);
    waitFor([&] { return first.asked.has_value(); });
    first.leave();
    Avahi second(address, "second");
    announces("second");
    const auto before = notices.size();
    // Its answer comes late, and before what the other one says next.
    first.answer("first");
    second.rename("third");
    announces("third");
    EXPECT_EQ(notices.size(), before + 1);
    EXPECT_EQ(connection->copyComputerName(), "Ann's Desk");
    second.leave();
    waitFor([&] { return connection->copyLocalHostName() != "third"; });
}
