#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QStringList>
#include <functional>
#include <vector>

#include "platform/Observable.h"
#include "platform/Viewers.h"

namespace zelvo::platform {

/// Tells by the desktop's notifications that somebody asks, comes in or leaves. Nothing waits for
/// the desktop; where it has none, nothing happens. Main thread only.
class ViewerNotifications final : public QObject {
    Q_OBJECT

  public:
    struct Listener {
        std::function<void()> showQuestion;
        std::function<void(std::uint32_t viewer)> refuse;
    };

    /// The viewers outlive this object. `icon` is the file of the application's.
    ViewerNotifications(const Viewers& viewers, QString icon, QDBusConnection bus,
                        Listener listener);
    ~ViewerNotifications() override;

    /// Takes back what asks, and tells nothing any more.
    void end();

  private slots:
    void actionInvoked(uint notification, const QString& action);

  private:
    void questionChanged();
    void insideChanged();
    void close();
    QDBusPendingCall notify(const QString& title, const QString& text, const QStringList& actions,
                            bool isUrgent);

    const Viewers& viewers_;
    QString icon_;
    QDBusConnection bus_;
    Listener listener_;
    std::vector<Viewer> inside_;
    std::uint32_t asked_ = 0;
    /// Of the one that asks; 0 before the desktop has said it.
    uint notification_ = 0;
    std::vector<Subscription> subscriptions_;
};

}  // namespace zelvo::platform
