#pragma once

#include <QDBusConnection>
#include <QMenu>
#include <QObject>
#include <QSystemTrayIcon>
#include <functional>
#include <memory>
#include <vector>

#include "platform/Observable.h"

namespace zelvo::platform {

class Bundle;
class Explanations;
class MainWindowModel;
class Preferences;
class Viewers;

/// An icon among those of the desktop's panel while the link is up and the user wants it. None
/// where the desktop has no place for it, which is asked without waiting. Main thread only.
class TrayIcon final : public QObject {
  public:
    struct Surroundings {
        const MainWindowModel& model;
        const Viewers& viewers;
        const Explanations& explanations;
        const Bundle& bundle;
        const Preferences& preferences;
    };
    struct Listener {
        std::function<void()> disconnectEverybody;
        std::function<void()> showWindow;
        std::function<void()> quit;
    };

    /// All outlive this object.
    TrayIcon(const Surroundings& surroundings, QDBusConnection bus, Listener listener);
    ~TrayIcon() override;

  private:
    bool isWanted() const;
    void update();
    void askForPlace();
    void make();

    Surroundings surroundings_;
    QDBusConnection bus_;
    Listener listener_;
    QMenu menu_;
    QAction* disconnect_ = nullptr;
    std::unique_ptr<QSystemTrayIcon> icon_;
    bool hasAsked_ = false;
    std::vector<Subscription> subscriptions_;
};

}  // namespace zelvo::platform
