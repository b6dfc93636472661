#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <memory>
#include <optional>
#include <string>

#include "platform/Observable.h"

class QDBusPendingCallWatcher;
class QDBusServiceWatcher;

namespace zelvo::platform {

/// The host name that the Avahi daemon has made its own on the local link; it takes another one
/// when the name is somebody else's already. The daemon is never started for being asked. Needs the
/// application object with its event loop. Main thread only.
class AvahiHostName : public QObject {
    Q_OBJECT

  public:
    using Name = std::optional<std::string>;

    /// Begins to watch.
    explicit AvahiHostName(const QDBusConnection& bus);
    ~AvahiHostName() override;

    /// None while no daemon runs. The last name stays while the daemon is finding another one.
    Observable<Name>& name() { return name_; }

  private Q_SLOTS:
    void stateChanged(const QDBusMessage& message);

  private:
    using Answer = void (AvahiHostName::*)(QDBusPendingCallWatcher* call);

    void ask(const char* method, Answer answer);
    void answeredState(QDBusPendingCallWatcher* call);
    void answeredName(QDBusPendingCallWatcher* call);
    void set(const Name& name);

    QDBusConnection bus_;
    std::unique_ptr<QDBusServiceWatcher> owners_;
    /// Answers to questions put to an earlier daemon count no more.
    int daemon_ = 0;
    Observable<Name> name_;
};

}  // namespace zelvo::platform
