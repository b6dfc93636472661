#include "platform/qt/widgets/ColorScheme.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QStyle>

namespace zelvo::platform {

namespace {

constexpr const char* Service = "org.freedesktop.portal.Desktop";
constexpr const char* Path = "/org/freedesktop/portal/desktop";
constexpr const char* Interface = "org.freedesktop.portal.Settings";
constexpr const char* Space = "org.freedesktop.appearance";
constexpr const char* Key = "color-scheme";
constexpr uint Dark = 1;

bool isDark(const QPalette& palette) {
    return palette.color(QPalette::Window).lightness() <
           palette.color(QPalette::WindowText).lightness();
}

// Old portals wrap the value twice.
uint unwrapped(QVariant value) {
    while (value.canConvert<QDBusVariant>())
        value = value.value<QDBusVariant>().variant();
    return value.toUInt();
}

}  // namespace

QPalette darkPalette() {
    const QColor window(0x2b, 0x2c, 0x30);
    const QColor text(0xec, 0xed, 0xef);
    QPalette palette(QColor(0x3a, 0x3b, 0x40), window);
    for (auto role :
         {QPalette::WindowText, QPalette::Text, QPalette::ButtonText, QPalette::ToolTipText})
        palette.setColor(role, text);
    palette.setColor(QPalette::BrightText, Qt::white);
    palette.setColor(QPalette::Base, QColor(0x1f, 0x20, 0x23));
    palette.setColor(QPalette::AlternateBase, QColor(0x25, 0x26, 0x29));
    palette.setColor(QPalette::ToolTipBase, window);
    palette.setColor(QPalette::Highlight, QColor(0x3d, 0x8b, 0xd9));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, QColor(0x6c, 0xb0, 0xf0));
    palette.setColor(QPalette::PlaceholderText, QColor(0xec, 0xed, 0xef, 0x90));
    for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, QColor(0x8a, 0x8c, 0x92));
    return palette;
}

ColorScheme::ColorScheme() : themeIsDark_(isDark(QApplication::palette())) {
    auto bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    // Without the service's name, for which Qt would ask the bus and wait. Whoever sends such a
    // signal chooses between dark and light, no more.
    bus.connect(QString(), Path, Interface, "SettingChanged", this,
                SLOT(settingChanged(QString, QString, QDBusVariant)));
    auto question = QDBusMessage::createMethodCall(Service, Path, Interface, "Read");
    question << Space << Key;
    auto* answer = new QDBusPendingCallWatcher(bus.asyncCall(question), this);
    connect(answer, &QDBusPendingCallWatcher::finished, this, [this, answer] {
        QDBusPendingReply<QDBusVariant> reply = *answer;
        if (!reply.isError())
            apply(unwrapped(reply.value().variant()));
        answer->deleteLater();
    });
}

void ColorScheme::settingChanged(const QString& space, const QString& key,
                                 const QDBusVariant& value) {
    if (space == Space && key == Key)
        apply(unwrapped(value.variant()));
}

void ColorScheme::apply(uint scheme) {
    // A theme that brings its own dark colours, or a style of its own, knows better.
    bool wanted = scheme == Dark && !themeIsDark_ &&
                  QApplication::style()->name().compare("fusion", Qt::CaseInsensitive) == 0;
    if (wanted == isApplied_)
        return;
    isApplied_ = wanted;
    QApplication::setPalette(wanted ? darkPalette() : QPalette());
}

}  // namespace zelvo::platform
