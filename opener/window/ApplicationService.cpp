#include "opener/window/ApplicationService.h"

#include <QDBusConnection>
#include <algorithm>
#include <utility>

namespace zelvo::opener {

namespace {

constexpr const char* ServiceName = "app.zelvo.ZelvoOpen";
constexpr const char* ObjectPath = "/app/zelvo/ZelvoOpen";
/// At once; whoever hands over more means something else.
constexpr qsizetype MostLinks = 4;

/// By which the display server knows that the user wants this window in front.
void takeToken(const QVariantMap& platformData) {
    const auto token = platformData.value("activation-token").toByteArray();
    if (!token.isEmpty())
        qputenv("XDG_ACTIVATION_TOKEN", token);
    const auto startup = platformData.value("desktop-startup-id").toByteArray();
    if (!startup.isEmpty())
        qputenv("DESKTOP_STARTUP_ID", startup);
}

}  // namespace

ApplicationService::ApplicationService(Listener listener) : listener_(std::move(listener)) {}

bool ApplicationService::begin() {
    auto bus = QDBusConnection::sessionBus();
    return bus.registerObject(ObjectPath, this, QDBusConnection::ExportAllSlots) &&
           bus.registerService(ServiceName);
}

void ApplicationService::Activate(const QVariantMap& platformData) {
    takeToken(platformData);
    listener_.activate();
}

void ApplicationService::Open(const QStringList& links, const QVariantMap& platformData) {
    takeToken(platformData);
    for (const auto& link : links.first(std::min(links.size(), MostLinks)))
        listener_.open(link);
}

void ApplicationService::ActivateAction(const QString&, const QVariantList&,
                                        const QVariantMap& platformData) {
    Activate(platformData);
}

}  // namespace zelvo::opener
