#include "platform/linux/desktop/DesktopInputSources.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QVariantMap>
#include <utility>

#include "platform/Bundle.h"
#include "platform/PropertyListReader.h"
#include "platform/linux/base/FileReading.h"
#include "platform/linux/desktop/GnomeSettings.h"
#include "platform/linux/desktop/KdeSettings.h"
#include "platform/linux/desktop/KeyCombinations.h"
#include "platform/linux/desktop/XServerKeyboard.h"

namespace zelvo::platform {

namespace {

constexpr const char* localeConnection = "zelvo-locale";
constexpr const char* localeService = "org.freedesktop.locale1";
constexpr int localeTimeout = 200;

std::string preferencesFolder(const Bundle& bundle) {
    auto library = bundle.userLibraryDirectory();
    return library ? *library + "/Preferences" : std::string();
}

std::string firstOf(const QVariantMap& values, const char* key) {
    auto list = values.value(key).toString().toStdString();
    return trimmed(list.substr(0, list.find(',')));
}

}  // namespace

DesktopInputSources::DesktopInputSources(Options options, const Bundle& bundle,
                                         const PropertyListReader& reader, Log& log)
    : options_(std::move(options)),
      bundle_(bundle),
      reader_(reader),
      preferences_(preferencesFolder(bundle), log),
      file_(options_.keyboardFile) {}

std::optional<std::string> DesktopInputSources::currentKeyboardInputSourceId() const {
    auto desktop = knownDesktop();
    auto settings = desktop ? desktopSettings(*desktop) : std::nullopt;
    // A desktop that did not answer in time has still the settings that it had.
    if (settings || !desktop)
        preferences_.write(settings);
    if (settings && settings->inputSource)
        return settings->inputSource;
#ifdef ZELVO_XCB
    if (!options_.display.empty()) {
        if (auto layout = xServerKeyboardLayout(options_.display))
            return layout;
    }
#endif
    if (auto layout = localeServiceLayout())
        return layout;
    return file_.currentKeyboardInputSourceId();
}

std::optional<DesktopInputSources::Desktop> DesktopInputSources::knownDesktop() const {
    auto desktops = ":" + options_.desktop + ":";
    auto has = [&](const char* name) {
        return desktops.find(":" + std::string(name) + ":") != desktops.npos;
    };
    // These two are GNOME's relatives with another window manager.
    if (has("GNOME") && !has("Budgie") && !has("GNOME-Flashback"))
        return Desktop::Gnome;
    return has("KDE") ? std::optional(Desktop::Kde) : std::nullopt;
}

std::optional<DesktopSettings> DesktopInputSources::desktopSettings(Desktop desktop) const {
    auto table =
        reader_.dictionaryWithContentsOfFile(bundle_.resourcePath() + "/KeycodeToKeysym.plist");
    KeyCombinations combinations(table.value_or(PropertyList::Dictionary()));
    return desktop == Desktop::Gnome
               ? readGnomeSettings(combinations)
               : readKdeSettings(options_.configHome, options_.sessionBus, combinations);
}

std::optional<std::string> DesktopInputSources::localeServiceLayout() const {
    auto bus = options_.systemBus.empty()
                   ? QDBusConnection::connectToBus(QDBusConnection::SystemBus, localeConnection)
                   : QDBusConnection::connectToBus(QString::fromStdString(options_.systemBus),
                                                   localeConnection);
    auto question = QDBusMessage::createMethodCall(localeService, "/org/freedesktop/locale1",
                                                   "org.freedesktop.DBus.Properties", "GetAll");
    question << QString(localeService);
    // What it would say once started, the keyboard's file says at once.
    question.setAutoStartService(false);
    auto answer =
        bus.isConnected() ? bus.call(question, QDBus::Block, localeTimeout) : QDBusMessage();
    QDBusConnection::disconnectFromBus(localeConnection);
    if (answer.type() != QDBusMessage::ReplyMessage)
        return std::nullopt;
    auto values = qdbus_cast<QVariantMap>(answer.arguments().value(0));
    auto layout = firstOf(values, "X11Layout");
    auto variant = firstOf(values, "X11Variant");
    if (layout.empty())
        return std::nullopt;
    return variant.empty() ? layout : layout + "+" + variant;
}

}  // namespace zelvo::platform
