#include "serving/ServerSignals.h"

#include <csignal>
#include <utility>

namespace zelvo::serving {
namespace {

sigset_t awaitedSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (int signal : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&signals, signal);
    return signals;
}

}  // namespace

ServerSignals::ServerSignals() {
    const auto signals = awaitedSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

void ServerSignals::start(Actions actions) {
    thread_ = std::thread([this, actions = std::move(actions)] {
        const auto signals = awaitedSignals();
        for (int signal = 0; sigwait(&signals, &signal) == 0 && !ending_;) {
            if (signal == SIGHUP)
                actions.reload();
            else
                actions.end();
        }
    });
}

ServerSignals::~ServerSignals() {
    stop();
}

void ServerSignals::stop() {
    if (!thread_.joinable())
        return;
    ending_ = true;
    pthread_kill(thread_.native_handle(), SIGTERM);
    thread_.join();
}

}  // namespace zelvo::serving
