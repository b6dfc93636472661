#pragma once

#include <QObject>
#include <QStringList>
#include <QVariantMap>
#include <functional>

namespace zelvo::opener {

/// The desktop's way of starting a program and handing it what to open (org.freedesktop.Application
/// on the session bus), by which a link is in no process's arguments.
class ApplicationService final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")

  public:
    struct Listener {
        std::function<void()> activate;
        std::function<void(const QString& link)> open;
    };

    explicit ApplicationService(Listener listener);

    /// False without a session bus, and where another process serves already.
    bool begin();

  public slots:
    // By these names the desktop calls them.
    void Activate(const QVariantMap& platformData);
    void Open(const QStringList& links, const QVariantMap& platformData);
    void ActivateAction(const QString& action, const QVariantList& parameter,
                        const QVariantMap& platformData);

  private:
    Listener listener_;
};

}  // namespace zelvo::opener
