#include "platform/qt/viewers/ViewerNotifications.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariantMap>
#include <algorithm>

#include "platform/qt/content/Localized.h"
#include "platform/qt/content/StatusTexts.h"
#include "platform/qt/viewers/ViewerTexts.h"

namespace zelvo::platform {

namespace {

constexpr const char* NotificationService = "org.freedesktop.Notifications";
constexpr const char* NotificationPath = "/org/freedesktop/Notifications";
constexpr uchar Critical = 2;
constexpr uchar Normal = 1;
constexpr int Never = 0;
constexpr int AsTheDesktopLikes = -1;

QDBusMessage notificationCall(const char* method) {
    return QDBusMessage::createMethodCall(NotificationService, NotificationPath,
                                          NotificationService, method);
}

bool holds(const std::vector<Viewer>& list, std::uint32_t id) {
    return std::ranges::any_of(list, [id](const Viewer& viewer) { return viewer.id == id; });
}

}  // namespace

ViewerNotifications::ViewerNotifications(const Viewers& viewers, QString icon, QDBusConnection bus,
                                         Listener listener)
    : viewers_(viewers),
      icon_(std::move(icon)),
      bus_(std::move(bus)),
      listener_(std::move(listener)) {
    if (!bus_.isConnected())
        return;
    // By a name the bus would be asked whose it is, and waited for.
    bus_.connect(QString(), NotificationPath, NotificationService, "ActionInvoked", this,
                 SLOT(actionInvoked(uint, QString)));
    inside_ = viewers.inside().value();
    subscriptions_.push_back(viewers.question().bind([this](const auto&) { questionChanged(); }));
    subscriptions_.push_back(viewers.inside().subscribe([this](const auto&) { insideChanged(); }));
}

ViewerNotifications::~ViewerNotifications() {
    end();
}

void ViewerNotifications::end() {
    subscriptions_.clear();
    close();
}

void ViewerNotifications::questionChanged() {
    const auto& question = viewers_.question().value();
    auto id = question ? question->id : 0;
    if (id == asked_)
        return;
    close();
    asked_ = id;
    if (!question)
        return;
    auto* answer = new QDBusPendingCallWatcher(
        notify(localized("Somebody wants to see your screen"),
               (question->name.empty() ? QString() : titleText(*question) + ". ") +
                   addressText(*question) + ". " + proofText(*question) + ' ' +
                   encryptionText(*question) +
                   (viewers_.abilities().value().canControl ? QString()
                                                            : ' ' + localized(NobodyCanHelp)),
               {"show", localized("Show"), "refuse", localized("Refuse")}, true),
        this);
    connect(answer, &QDBusPendingCallWatcher::finished, this, [this, answer, id] {
        QDBusPendingReply<uint> reply = *answer;
        answer->deleteLater();
        if (reply.isError())
            return;
        if (asked_ == id)
            notification_ = reply.value();
        else
            bus_.send(notificationCall("CloseNotification") << reply.value());
    });
}

void ViewerNotifications::insideChanged() {
    auto before = std::exchange(inside_, viewers_.inside().value());
    for (const auto& viewer : inside_)
        if (!holds(before, viewer.id))
            notify(localized("Somebody sees your screen now"), viewerText(viewer), {}, false);
    for (const auto& viewer : before)
        if (holds(viewers_.away().value(), viewer.id))
            notify(localized("Somebody has lost the connection"), awayText(viewer), {}, false);
        else if (!holds(inside_, viewer.id))
            notify(localized("Somebody has left"),
                   localizedWith("%@ does not see your screen any more", whoText(viewer)), {},
                   false);
}

void ViewerNotifications::actionInvoked(uint notification, const QString& action) {
    if (!notification || notification != notification_)
        return;
    if (action == "show")
        listener_.showQuestion();
    else if (action == "refuse")
        listener_.refuse(asked_);
}

void ViewerNotifications::close() {
    asked_ = 0;
    if (auto notification = std::exchange(notification_, 0))
        bus_.send(notificationCall("CloseNotification") << notification);
}

QDBusPendingCall ViewerNotifications::notify(const QString& title, const QString& text,
                                             const QStringList& actions, bool isUrgent) {
    QVariantMap hints{{"urgency", QVariant::fromValue(isUrgent ? Critical : Normal)},
                      {"desktop-entry", "zelvo"}};
    return bus_.asyncCall(notificationCall("Notify")
                          << "Zelvo" << 0U << icon_ << title << text.toHtmlEscaped() << actions
                          << hints << (isUrgent ? Never : AsTheDesktopLikes));
}

}  // namespace zelvo::platform
