#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <memory>
#include <optional>
#include <string>

#include "platform/Observable.h"
#include "platform/linux/base/FileDescriptor.h"

class QDBusPendingCallWatcher;
class QDBusServiceWatcher;
class QSocketNotifier;

namespace zelvo::platform {

class AvahiHostName;
class Log;

/// The names of this host and their changes. The names are first those of the files that
/// systemd-hostnamed keeps, and of the kernel; then hostnamed's own and Avahi's where they run.
/// hostnamed is never started for being asked: it takes a tenth of a second to start and says what
/// its files say, and whoever changes a name starts it anyway. A name that is no UTF-8 text is
/// passed over. Main thread only.
class HostNames : public QObject {
    Q_OBJECT

  public:
    struct Options {
        /// Address of the message bus; empty for the system bus.
        std::string busAddress;
        /// Stands before "/etc".
        std::string root;
    };
    struct Changed {
        bool computerName = false;
        bool localHostName = false;
    };

    /// Reads the files. The log outlives this object.
    HostNames(Options options, Log& log);
    ~HostNames() override;

    /// Begins to watch. Needs the application object with its event loop.
    void watch();

    /// The pretty name, else the static one, else the kernel's.
    std::optional<std::string> computerName() const;
    /// Avahi's name, else the first label of the kernel's.
    std::optional<std::string> localHostName() const;
    /// The kernel's name.
    std::optional<std::string> kernelName() const;

    /// Written whenever a name has changed.
    Observable<Changed>& changes() { return changes_; }

  private Q_SLOTS:
    void propertiesChanged(const QDBusMessage& message);

  private:
    void watchBus();
    void watchKernel();
    void ask();
    void answered(QDBusPendingCallWatcher* call);
    void readKernel();
    void announce();

    const Options options_;
    Log& log_;
    std::string pretty_;
    std::string static_;
    std::string kernel_;
    std::optional<std::string> announcedComputerName_;
    std::optional<std::string> announcedLocalHostName_;
    Observable<Changed> changes_;

    std::optional<QDBusConnection> bus_;
    std::unique_ptr<QDBusServiceWatcher> owners_;
    std::unique_ptr<AvahiHostName> avahi_;
    Subscription avahiSubscription_;
    FileDescriptor kernelFile_;
    std::unique_ptr<QSocketNotifier> kernelNotifier_;
};

}  // namespace zelvo::platform
