#include "platform/qt/programs/SettingsServices.h"

#include <QDBusMessage>
#include <QStringList>
#include <QVariantMap>
#include <utility>

namespace zelvo::platform {

namespace {

constexpr int answerTimeout = 300;

/// The action "quit" of a GTK application, which is called on where its name says.
QDBusMessage gtkQuit(const char* service, const char* object) {
    auto call = QDBusMessage::createMethodCall(service, object, "org.gtk.Actions", "Activate");
    return call << QString("quit") << QVariantList() << QVariantMap();
}

std::vector<QDBusMessage> quitCalls() {
    return {gtkQuit("org.gnome.Settings", "/org/gnome/Settings"),
            // Its name before GNOME 43.
            gtkQuit("org.gnome.ControlCenter", "/org/gnome/ControlCenter"),
            QDBusMessage::createMethodCall("org.kde.systemsettings", "/MainApplication",
                                           "org.qtproject.Qt.QCoreApplication", "quit")};
}

class SettingsService final : public RunningApplication {
  public:
    SettingsService(QDBusConnection bus, const QDBusMessage& quit)
        : bus_(std::move(bus)), quit_(quit) {
        // One that has gone meanwhile must not come back to be ended.
        quit_.setAutoStartService(false);
    }
    std::string bundleIdentifier() const override { return "com.apple.systempreferences"; }
    void terminate() override { bus_.send(quit_); }

  private:
    QDBusConnection bus_;
    QDBusMessage quit_;
};

}  // namespace

std::vector<std::unique_ptr<RunningApplication>> settingsServices(const QDBusConnection& bus) {
    std::vector<std::unique_ptr<RunningApplication>> found;
    if (!bus.isConnected())
        return found;
    auto question = QDBusMessage::createMethodCall("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                   "org.freedesktop.DBus", "ListNames");
    auto names =
        bus.call(question, QDBus::Block, answerTimeout).arguments().value(0).toStringList();
    for (const auto& quit : quitCalls()) {
        if (names.contains(quit.service()))
            found.push_back(std::make_unique<SettingsService>(bus, quit));
    }
    return found;
}

}  // namespace zelvo::platform
