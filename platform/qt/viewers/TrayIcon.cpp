#include "platform/qt/viewers/TrayIcon.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>

#include "platform/Bundle.h"
#include "platform/MainWindowModel.h"
#include "platform/Preferences.h"
#include "platform/Viewers.h"
#include "platform/qt/content/Localized.h"
#include "platform/qt/content/StatusTexts.h"
#include "platform/qt/widgets/Images.h"

namespace zelvo::platform {

namespace {

constexpr const char* WatcherService = "org.kde.StatusNotifierWatcher";
constexpr int TrayIconSize = 64;

}  // namespace

TrayIcon::TrayIcon(const Surroundings& surroundings, QDBusConnection bus, Listener listener)
    : surroundings_(surroundings), bus_(std::move(bus)), listener_(std::move(listener)) {
    disconnect_ = menu_.addAction(localized("Disconnect now"), this,
                                  [this] { listener_.disconnectEverybody(); });
    menu_.addAction(localized("Show Zelvo"), this, [this] { listener_.showWindow(); });
    menu_.addAction(localized("Quit"), this, [this] { listener_.quit(); });
    auto changed = [this](const auto&) { update(); };
    subscriptions_.push_back(surroundings.model.zelvoStatusProperty().subscribe(changed));
    subscriptions_.push_back(surroundings.model.sharedLink().subscribe(changed));
    subscriptions_.push_back(surroundings.model.readyToShare().subscribe(changed));
    subscriptions_.push_back(surroundings.model.isQuitting().subscribe(changed));
    subscriptions_.push_back(surroundings.viewers.question().subscribe(changed));
    subscriptions_.push_back(surroundings.viewers.inside().subscribe(changed));
    subscriptions_.push_back(surroundings.viewers.away().subscribe(changed));
    subscriptions_.push_back(surroundings.preferences.showsTrayIcon().subscribe(changed));
    update();
}

TrayIcon::~TrayIcon() = default;

bool TrayIcon::isWanted() const {
    const auto& model = surroundings_.model;
    return model.readyToShare().value() && !model.sharedLink().value().empty() &&
           !model.isQuitting().value() && surroundings_.preferences.showsTrayIcon().value();
}

void TrayIcon::update() {
    if (!isWanted()) {
        icon_.reset();
        hasAsked_ = false;
        return;
    }
    if (!icon_) {
        askForPlace();
        return;
    }
    bool isConnected = !surroundings_.viewers.inside().value().empty();
    disconnect_->setVisible(isConnected || !surroundings_.viewers.away().value().empty());
    auto image = surroundings_.viewers.question().value() ? "state-asking"
                 : isConnected                            ? "state-connected"
                                                          : "zelvo";
    icon_->setIcon(renderImage(QString::fromStdString(surroundings_.bundle.resourcePath()), image,
                               {TrayIconSize, TrayIconSize}, 1));
    auto texts = statusTexts(surroundings_.model, surroundings_.explanations, surroundings_.bundle,
                             &surroundings_.viewers);
    icon_->setToolTip("Zelvo – " + QString::fromStdString(texts.title));
}

// The toolkit would wait for the panel's answer.
void TrayIcon::askForPlace() {
    if (hasAsked_ || !bus_.isConnected())
        return;
    hasAsked_ = true;
    auto question = QDBusMessage::createMethodCall(WatcherService, "/StatusNotifierWatcher",
                                                   "org.freedesktop.DBus.Properties", "Get");
    question << WatcherService << "IsStatusNotifierHostRegistered";
    question.setAutoStartService(false);
    auto* answer = new QDBusPendingCallWatcher(bus_.asyncCall(question), this);
    connect(answer, &QDBusPendingCallWatcher::finished, this, [this, answer] {
        QDBusPendingReply<QDBusVariant> reply = *answer;
        answer->deleteLater();
        if (!reply.isError() && reply.value().variant().toBool() && isWanted())
            make();
    });
}

void TrayIcon::make() {
    icon_ = std::make_unique<QSystemTrayIcon>();
    icon_->setContextMenu(&menu_);
    connect(icon_.get(), &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger)
                    listener_.showWindow();
            });
    update();
    icon_->show();
}

}  // namespace zelvo::platform
