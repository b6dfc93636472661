#include "service/TerminationSignals.h"

#include <csignal>
#include <utility>

namespace zelvo::service {

TerminationSignals::TerminationSignals(std::function<void()> onSignal) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    thread_ = std::thread([this, signals, onSignal = std::move(onSignal)] {
        int signal = 0;
        sigwait(&signals, &signal);
        if (!ending_)
            onSignal();
    });
}

TerminationSignals::~TerminationSignals() {
    ending_ = true;
    pthread_kill(thread_.native_handle(), SIGTERM);
    thread_.join();
}

}  // namespace zelvo::service
