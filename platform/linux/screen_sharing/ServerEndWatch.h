#pragma once

#include <sys/types.h>

#include <QObject>
#include <QTimer>
#include <functional>
#include <memory>

#include "platform/linux/base/FileDescriptor.h"

class QSocketNotifier;

namespace zelvo::platform {

/// Tells when a server process has ended, so that its port is looked at anew before anybody who
/// takes it over is published. Main thread only.
class ServerEndWatch : public QObject {
  public:
    ServerEndWatch();
    ~ServerEndWatch() override;

    /// Watches this process, and no other any more. Costs nothing where it is watched already;
    /// does nothing where the kernel cannot watch processes (before Linux 5.3).
    void watch(pid_t server);

    /// Called one second after the end, by when a server that the tools have restarted is known.
    std::function<void()> ended;

  private:
    pid_t server_ = 0;
    FileDescriptor process_;
    std::unique_ptr<QSocketNotifier> notifier_;
    QTimer pause_;
};

}  // namespace zelvo::platform
