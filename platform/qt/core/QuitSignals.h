#pragma once

#include <csignal>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

class QSocketNotifier;

namespace zelvo::platform {

/// Turns SIGTERM, SIGINT and SIGHUP into calls on the main thread for as long as it lives, and
/// ignores SIGPIPE. One at a time in a process.
class QuitSignals {
  public:
    explicit QuitSignals(std::function<void()> quit);
    ~QuitSignals();
    QuitSignals(const QuitSignals&) = delete;
    QuitSignals& operator=(const QuitSignals&) = delete;

  private:
    void handle(int signal, void (*handler)(int));

    std::function<void()> quit_;
    int readEnd_ = -1;
    std::unique_ptr<QSocketNotifier> notifier_;
    std::vector<std::pair<int, struct sigaction>> earlier_;
};

}  // namespace zelvo::platform
