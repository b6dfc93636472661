#include "platform/qt/core/QuitSignals.h"

#include <fcntl.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <atomic>
#include <cerrno>

namespace zelvo::platform {

namespace {

// A signal handler can reach nothing but what is static.
std::atomic<int> writeEnd{-1};

void wake(int) {
    int error = errno;
    char byte = 1;
    [[maybe_unused]] auto written = ::write(writeEnd.load(), &byte, 1);
    errno = error;
}

}  // namespace

QuitSignals::QuitSignals(std::function<void()> quit) : quit_(std::move(quit)) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    readEnd_ = ends[0];
    writeEnd = ends[1];
    notifier_ = std::make_unique<QSocketNotifier>(readEnd_, QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, notifier_.get(), [this] {
        char byte = 0;
        while (::read(readEnd_, &byte, 1) == 1)
            quit_();
    });
    handle(SIGTERM, wake);
    handle(SIGINT, wake);
    // Under nohup(1) a hang-up stays ignored.
    struct sigaction hangUp {};
    if (::sigaction(SIGHUP, nullptr, &hangUp) == 0 && hangUp.sa_handler != SIG_IGN)
        handle(SIGHUP, wake);
    handle(SIGPIPE, SIG_IGN);
}

QuitSignals::~QuitSignals() {
    for (const auto& [signal, action] : earlier_)
        ::sigaction(signal, &action, nullptr);
    notifier_.reset();
    if (readEnd_ >= 0) {
        ::close(writeEnd.exchange(-1));
        ::close(readEnd_);
    }
}

void QuitSignals::handle(int signal, void (*handler)(int)) {
    struct sigaction action {};
    struct sigaction earlier {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    ::sigemptyset(&action.sa_mask);
    if (::sigaction(signal, &action, &earlier) == 0)
        earlier_.emplace_back(signal, earlier);
}

}  // namespace zelvo::platform
