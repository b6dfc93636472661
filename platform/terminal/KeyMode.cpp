#include "platform/terminal/KeyMode.h"

#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace zelvo::platform {

namespace {

// A signal handler can reach nothing but what is static.
volatile std::sig_atomic_t terminal = -1;
termios earlier;
termios keyByKey;

// From the background the terminal would answer by stopping the process.
void set(const termios& settings) {
    int descriptor = terminal;
    if (descriptor >= 0 && ::tcgetpgrp(descriptor) == ::getpgrp())
        ::tcsetattr(descriptor, TCSANOW, &settings);
}

void handle(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(signal, &action, nullptr);
}

// Stopped by the default action, which spares a process that nobody could continue.
void stop(int) {
    int error = errno;
    set(earlier);
    handle(SIGTSTP, SIG_DFL);
    sigset_t stopping;
    ::sigemptyset(&stopping);
    ::sigaddset(&stopping, SIGTSTP);
    ::raise(SIGTSTP);
    ::pthread_sigmask(SIG_UNBLOCK, &stopping, nullptr);
    handle(SIGTSTP, stop);
    set(keyByKey);
    errno = error;
}

void goOn(int) {
    int error = errno;
    set(keyByKey);
    errno = error;
}

}  // namespace

KeyMode::KeyMode(int descriptor) {
    if (::isatty(descriptor) != 1 || ::tcgetattr(descriptor, &earlier) != 0)
        return;
    keyByKey = earlier;
    keyByKey.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    terminal = descriptor;
    struct sigaction stopping {};
    // Without job control stopping stays ignored.
    if (::sigaction(SIGTSTP, nullptr, &stopping) == 0 && stopping.sa_handler != SIG_IGN)
        handle(SIGTSTP, stop);
    handle(SIGCONT, goOn);
    set(keyByKey);
}

KeyMode::~KeyMode() {
    if (terminal < 0)
        return;
    set(earlier);
    terminal = -1;
    struct sigaction stopping {};
    if (::sigaction(SIGTSTP, nullptr, &stopping) == 0 && stopping.sa_handler == stop)
        handle(SIGTSTP, SIG_DFL);
    handle(SIGCONT, SIG_DFL);
}

}  // namespace zelvo::platform
