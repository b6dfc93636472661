#include "platform/terminal/KeyMode.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string_view>

namespace zelvo::platform {

namespace {

// A signal handler can reach nothing but what is static.
volatile std::sig_atomic_t terminal = -1;
termios earlier;
termios keyByKey;
volatile std::sig_atomic_t screen = -1;
volatile std::sig_atomic_t isOnScreen = 0;
/// Somebody else asks in the terminal.
volatile std::sig_atomic_t isGivenBack = 0;
int changed[2] = {-1, -1};
/// Standard error, and what takes its place.
int errors = -1;
int nowhere = -1;
constexpr std::string_view EnterScreen = "\033[?1049h\033[H\033[2J";
constexpr std::string_view LeaveScreen = "\033[0m\033[H\033[2J\033[?1049l";
constexpr int Fatal[] = {SIGQUIT, SIGILL, SIGABRT, SIGBUS, SIGFPE, SIGSEGV};

// From the background the terminal would answer by stopping the process; one that controls nobody
// here does not.
bool isOurs(int descriptor) {
    const auto group = ::tcgetpgrp(descriptor);
    return group == ::getpgrp() || (group < 0 && errno == ENOTTY);
}

void set(const termios& settings) {
    int descriptor = terminal;
    if (descriptor >= 0 && isOurs(descriptor))
        ::tcsetattr(descriptor, TCSANOW, &settings);
}

void takeKeys() {
    if (!isGivenBack)
        set(keyByKey);
}

void enterScreen() {
    if (screen < 0 || isOnScreen || isGivenBack || !isOurs(screen))
        return;
    isOnScreen = 1;
    [[maybe_unused]] auto written = ::write(screen, EnterScreen.data(), EnterScreen.size());
    if (errors >= 0 && nowhere >= 0)
        ::dup2(nowhere, STDERR_FILENO);
}

void leaveScreen() {
    if (!isOnScreen)
        return;
    isOnScreen = 0;
    [[maybe_unused]] auto written = ::write(screen, LeaveScreen.data(), LeaveScreen.size());
    if (errors >= 0)
        ::dup2(errors, STDERR_FILENO);
}

void tellOfChange() {
    char byte = 1;
    [[maybe_unused]] auto written = ::write(changed[1], &byte, 1);
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
    leaveScreen();
    set(earlier);
    handle(SIGTSTP, SIG_DFL);
    sigset_t stopping;
    ::sigemptyset(&stopping);
    ::sigaddset(&stopping, SIGTSTP);
    ::raise(SIGTSTP);
    ::pthread_sigmask(SIG_UNBLOCK, &stopping, nullptr);
    handle(SIGTSTP, stop);
    takeKeys();
    enterScreen();
    tellOfChange();
    errno = error;
}

void goOn(int) {
    int error = errno;
    takeKeys();
    enterScreen();
    tellOfChange();
    errno = error;
}

void resized(int) {
    int error = errno;
    tellOfChange();
    errno = error;
}

void die(int signal) {
    leaveScreen();
    set(earlier);
    handle(signal, SIG_DFL);
    ::raise(signal);
}

bool isDefault(int signal) {
    struct sigaction action {};
    return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_DFL;
}

void takeScreen(int descriptor) {
    if (::pipe2(changed, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    screen = descriptor;
    if (::isatty(STDERR_FILENO) == 1) {
        errors = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
        nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    }
    handle(SIGWINCH, resized);
    enterScreen();
}

void giveScreenBack() {
    leaveScreen();
    handle(SIGWINCH, SIG_DFL);
    screen = -1;
    for (auto* descriptor : {&changed[0], &changed[1], &errors, &nowhere}) {
        if (*descriptor >= 0)
            ::close(*descriptor);
        *descriptor = -1;
    }
}

}  // namespace

KeyMode::KeyMode(int descriptor, int screenDescriptor) {
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
    for (int signal : Fatal)
        if (isDefault(signal))
            handle(signal, die);
    set(keyByKey);
    if (screenDescriptor >= 0)
        takeScreen(screenDescriptor);
}

void KeyMode::giveBack() {
    isGivenBack = 1;
    leaveScreen();
    set(earlier);
}

void KeyMode::takeAgain() {
    isGivenBack = 0;
    resume();
}

void KeyMode::resume() {
    takeKeys();
    enterScreen();
    tellOfChange();
}

bool KeyMode::isOnScreen() const {
    return platform::isOnScreen != 0;
}

bool KeyMode::isInForeground() const {
    return isOurs(terminal);
}

int KeyMode::changes() const {
    return changed[0];
}

KeyMode::~KeyMode() {
    if (terminal < 0)
        return;
    giveScreenBack();
    set(earlier);
    terminal = -1;
    for (int signal : Fatal) {
        struct sigaction action {};
        if (::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == die)
            handle(signal, SIG_DFL);
    }
    struct sigaction stopping {};
    if (::sigaction(SIGTSTP, nullptr, &stopping) == 0 && stopping.sa_handler == stop)
        handle(SIGTSTP, SIG_DFL);
    handle(SIGCONT, SIG_DFL);
}

}  // namespace zelvo::platform
