// screensharingd: shows the desktop of the user that it runs as to viewers whom Zelvo lets in.
// Started by the enable tool; ends with the Zelvo that it finds.

#include <malloc.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/base/EventLoop.h"
#include "platform/linux/base/StandardDescriptors.h"
#include "server/gate/Gate.h"
#include "server/gate/ZelvoLine.h"
#include "server/screen/x11/X11Screen.h"
#include "server/vnc/ScreenThread.h"

using namespace zelvo;
using namespace zelvo::server;
using platform::EventLoop;
namespace gate = zelvo::platform::gate;

/// The VNC library brings GnuTLS, of which it gets nothing to do here; unless told not to (in this
/// way of its own), that sets itself up at every start.
extern "C" [[gnu::visibility("default")]] int _gnutls_global_init_skip() {
    return 1;
}

namespace {

constexpr std::uint16_t standardVncPort = 5900;

/// The enable tool waits for one word: how it went.
void tell(const char* word) {
    std::printf("%s\n", word);
    std::fflush(stdout);
}

/// The exit status; the sentence is for the log.
int giveUp(const char* word, const std::string& sentence) {
    std::fprintf(stderr, "screensharingd: %s\n", sentence.c_str());
    tell(word);
    return EXIT_FAILURE;
}

struct Options {
    std::string socket;
    std::uint16_t port = standardVncPort;
};

std::optional<Options> parse(int argc, char* argv[]) {
    Options options;
    for (int i = 1; i + 1 < argc; i += 2) {
        std::string_view name = argv[i];
        std::string_view value = argv[i + 1];
        if (name == "--socket") {
            options.socket = value;
        } else if (name == "--port") {
            auto [end, error] =
                std::from_chars(value.data(), value.data() + value.size(), options.port);
            if (error != std::errc() || end != value.data() + value.size() || options.port == 0)
                return std::nullopt;
        } else {
            return std::nullopt;
        }
    }
    if (argc % 2 == 0 || options.socket.empty())
        return std::nullopt;
    return options;
}

/// The signals that end us, and SIGUSR1, which disconnects everybody; all threads leave them to it.
platform::FileDescriptor blockSignals() {
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t signals;
    sigemptyset(&signals);
    for (int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1})
        sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return platform::FileDescriptor(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

int serve(const Options& options, const platform::FileDescriptor& signals,
          std::unique_ptr<Screen> screen) {
    EventLoop loop;
    bool isEnding = false;
    std::unique_ptr<Gate> door;
    auto line = ZelvoLine::open(loop, options.socket,
                                {.message = [&](const auto& message) { door->handle(message); },
                                 .ended = [&] { isEnding = true; }});
    if (!line)
        return giveUp("server-failed", "No Zelvo of this user listens at " + options.socket + ".");
    auto listener = Gate::listen(options.port);
    if (!listener)
        return giveUp("port-taken", "Port " + std::to_string(options.port) +
                                        " cannot be had: " + std::strerror(errno) + ".");
    // The screen ends on its own thread.
    ScreenThread screenThread(std::move(screen), "Zelvo", [] { ::kill(::getpid(), SIGTERM); });
    door = std::make_unique<Gate>(
        loop, std::move(listener),
        Gate::Handlers{
            .tell = [&](const auto& message) { line->tell(message); },
            .admit = [&](auto viewer, auto socket,
                         auto rights) { screenThread.admit(viewer, std::move(socket), rights); },
            .setRights = [&](auto viewer, auto rights) { screenThread.setRights(viewer, rights); },
            .setInputPasses = [&](bool passes) { screenThread.setInputPasses(passes); }});
    EventLoop::Watch watch(loop, signals.get(), [&](auto) {
        signalfd_siginfo signal{};
        while (::read(signals.get(), &signal, sizeof signal) == sizeof signal) {
            if (signal.ssi_signo == SIGUSR1)
                door->handle(gate::Disconnect{gate::everybody});
            else
                isEnding = true;
        }
    });
    watch.setEvents(EPOLLIN);
    line->tell(gate::Listening{options.port});
    tell("listening");
    while (!isEnding) {
        loop.turn(door->nextDeadline());
        door->tick(EventLoop::Clock::now());
    }
    door.reset();
    // A display that hangs keeps us no longer.
    ::alarm(1);
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char* argv[]) {
    platform::occupyStandardDescriptors();
    // One heap for both threads, of which neither does much in it.
    ::mallopt(M_ARENA_MAX, 1);
    auto options = parse(argc, argv);
    if (!options)
        return giveUp("server-failed", "Usage: screensharingd --socket PATH [--port PORT]");
    auto signals = blockSignals();
    // The VNC library counts descriptors in sets of 1,024.
    const rlimit descriptors{512, 512};
    ::setrlimit(RLIMIT_NOFILE, &descriptors);
    auto display = std::make_unique<X11Connection>("");
    switch (display->problem()) {
        case X11Connection::Problem::Refused:
            return giveUp("display-refused", "The X display cannot be opened.");
        case X11Connection::Problem::NotUsable:
            return giveUp("server-failed", "The X display lacks what showing it needs.");
        case X11Connection::Problem::Xwayland:
            return giveUp("wayland-no-server", "This X display is Xwayland, and not the desktop.");
        case X11Connection::Problem::None:
            break;
    }
    return serve(*options, signals, std::make_unique<X11Screen>(std::move(display)));
}
