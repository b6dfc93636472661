#include "platform/qt/viewers/ViewerNotifications.h"

#include <gtest/gtest.h>

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusVirtualObject>

#include "tests/qt/Wait.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FakeViewers.h"
#include "tests/support/TemporaryFolder.h"

namespace zelvo::platform {
namespace {

constexpr const char* Name = "org.freedesktop.Notifications";
constexpr const char* Path = "/org/freedesktop/Notifications";

/// The desktop's side, which numbers the notifications from 1 on.
class NotificationDaemon final : public QDBusVirtualObject {
  public:
    explicit NotificationDaemon(const QString& address)
        : bus_(QDBusConnection::connectToBus(address, "notifications")) {
        bus_.registerVirtualObject("/", this, QDBusConnection::SubPath);
        EXPECT_TRUE(bus_.registerService(Name));
    }
    ~NotificationDaemon() override { QDBusConnection::disconnectFromBus(bus_.name()); }

    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& bus) override {
        auto values = message.arguments();
        if (message.member() == "CloseNotification") {
            said << QString("close %1").arg(values[0].toUInt());
            return true;
        }
        auto urgency = qdbus_cast<QVariantMap>(values[6])["urgency"].toUInt();
        said << values[3].toString() + QString(" (%1) ").arg(urgency) +
                    values[5].toStringList().join(' ');
        bodies << values[4].toString();
        return bus.send(message.createReply(++number_));
    }
    void act(uint notification, const char* action) {
        bus_.send(QDBusMessage::createSignal(Path, Name, "ActionInvoked")
                  << notification << QString(action));
    }
    bool says(const QStringList& lines) {
        test::waitFor([&] { return said.size() >= lines.size(); });
        return std::exchange(said, {}) == lines;
    }
    QStringList said;
    QStringList bodies;

  private:
    QDBusConnection bus_;
    uint number_ = 0;
};

TEST(ViewerNotifications, OfferTheQuestionAndTakeItBack) {
    test::TemporaryFolder folder;
    test::ChildProcess bus(
        "exec dbus-daemon --session --nofork --nopidfile --print-address --address=unix:dir=" +
        folder.path());
    auto address = QString::fromStdString(bus.readLine());
    NotificationDaemon desktop(address);
    FakeViewers viewers;
    QStringList heard;
    ViewerNotifications notifications(
        viewers, "icon", QDBusConnection::connectToBus(address, "front end"),
        {[&] { heard << "show"; },
         [&](std::uint32_t viewer) { heard << QString("refuse %1").arg(viewer); }});
    const QString asks = "Somebody wants to see your screen (2) show Show refuse Refuse";
    auto ask = [&](std::uint32_t id) {
        viewers.asked.set(ViewerQuestion{
            .id = id, .address = "::1", .until = {}, .name = "<a href=x>", .isRelayed = id == 8U});
    };
    // Replaced before the desktop has told their numbers.
    for (auto id : {7U, 8U, 9U}) {
        viewers.able.set({id != 7U, true});
        ask(id);
    }
    EXPECT_TRUE(desktop.says({asks, asks, asks, "close 1", "close 2"}));
    // Desktops read them as markup.
    EXPECT_TRUE(desktop.bodies[0].contains("&lt;") && !desktop.bodies.join(' ').contains('<'));
    EXPECT_TRUE(desktop.bodies[0].contains("no keys") && !desktop.bodies[1].contains("no keys"));
    EXPECT_TRUE(desktop.bodies[0].contains("From the address ::1"));
    EXPECT_TRUE(desktop.bodies[1].contains("Through a relay, which names the address ::1"));
    desktop.act(2, "refuse");
    desktop.act(3, "default");
    desktop.act(3, "show");
    desktop.act(3, "refuse");
    EXPECT_TRUE(test::waitFor([&] { return heard.size() == 2; }));
    EXPECT_EQ(heard.join(' ').toStdString(), "show refuse 9");
    viewers.asked.set(std::nullopt);
    viewers.isInside.set({{.id = 9, .address = "::1", .since = {}}});
    viewers.isInside.set({});
    EXPECT_TRUE(
        desktop.says({"close 3", "Somebody sees your screen now (1) ", "Somebody has left (1) "}));
    viewers.isInside.set({{.id = 10, .address = "::1", .since = {}}});
    viewers.isAway.set(viewers.isInside.value());
    viewers.isInside.set({});
    EXPECT_TRUE(desktop.says(
        {"Somebody sees your screen now (1) ", "Somebody has lost the connection (1) "}));
    QDBusConnection::disconnectFromBus("front end");
}

}  // namespace
}  // namespace zelvo::platform
