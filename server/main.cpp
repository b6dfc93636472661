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
#include <utility>
#include <vector>

#include "platform/linux/base/CrashFile.h"
#include "platform/linux/base/EventLoop.h"
#include "platform/linux/base/StandardDescriptors.h"
#include "server/gate/Gate.h"
#include "server/gate/ZelvoLine.h"
#include "server/screen/choice/OpenScreen.h"
#include "server/vnc/ScreenThread.h"
#include "server/vnc/TaskQueue.h"

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

/// From the start to the end of one server.
class Server {
  public:
    Server(const Options& options, platform::FileDescriptor signals)
        : options_(options),
          signals_(std::move(signals)),
          watch_(loop_, signals_.get(), [this](auto) { readSignals(); }) {
        watch_.setEvents(EPOLLIN);
    }

    /// The exit status.
    int run() {
        line_ = ZelvoLine::open(loop_, options_.socket,
                                {.message = [this](const auto& message) { handle(message); },
                                 .ended = [this] { isEnding_ = true; }});
        if (!line_)
            return giveUp("server-failed",
                          "No Zelvo of this user listens at " + options_.socket + ".");
        // Before the user is asked anything: without the port it would be in vain.
        listener_ = Gate::bind(options_.port);
        if (!listener_)
            return portIsTaken();
        EventLoop::Watch watch(loop_, home_.descriptor(), [this](auto) {
            for (const auto& task : home_.take())
                task();
        });
        watch.setEvents(EPOLLIN);
        screen_ = std::make_unique<ScreenThread>(
            openScreen, "Zelvo",
            ScreenThread::Handlers{
                .asksUser = [this] { home_.post([this] { asksUser(); }); },
                .opened = [this](const auto& result) { opened(result); },
                .ended = [this](auto end) { home_.post([=, this] { ended(end); }); }});
        while (!isEnding_) {
            loop_.turn(door_ ? door_->nextDeadline() : EventLoop::Clock::time_point::max());
            if (door_)
                door_->tick(EventLoop::Clock::now());
        }
        door_.reset();
        // A display that hangs keeps us no longer.
        ::alarm(1);
        screen_.reset();
        return status_;
    }

  private:
    int portIsTaken() const {
        return giveUp("port-taken", "Port " + std::to_string(options_.port) +
                                        " cannot be had: " + std::strerror(errno) + ".");
    }

    void end(int status) {
        isEnding_ = true;
        status_ = status;
    }

    void asksUser() {
        line_->tell(gate::DesktopAsks{});
        tell("asking");
    }

    /// On the screen's thread.
    void opened(const ScreenResult& result) {
        if (result.screen)
            home_.post([this, abilities = result.screen->abilities()] { serve(abilities); });
        else
            home_.post([this, word = result.word, sentence = result.sentence] {
                end(giveUp(word.c_str(), sentence));
            });
    }

    void serve(const Abilities& abilities) {
        if (!Gate::listen(listener_))
            return end(portIsTaken());
        door_ = std::make_unique<Gate>(
            loop_, std::move(listener_),
            Gate::Handlers{
                .tell = [this](const auto& message) { line_->tell(message); },
                .catchUp = [this] { line_->receive(); },
                .admit = [this](auto viewer, auto socket,
                                auto rights) { screen_->admit(viewer, std::move(socket), rights); },
                .setRights = [this](auto viewer,
                                    auto rights) { screen_->setRights(viewer, rights); },
                .setInputPasses = [this](bool passes) { screen_->setInputPasses(passes); }});
        if (!abilities.takesInput)
            door_->letOnlyWatch();
        for (const auto& message : std::exchange(early_, {}))
            door_->handle(message);
        line_->tell(gate::Listening{options_.port, abilities.takesInput, abilities.offersInput,
                                    abilities.hasClipboard});
        tell("listening");
    }

    void ended(ScreenEnd end) {
        if (end == ScreenEnd::Withdrawn)
            line_->tell(gate::DesktopWithdraws{});
        isEnding_ = true;
    }

    void handle(const gate::Message& message) {
        if (door_)
            door_->handle(message);
        else
            early_.push_back(message);
    }

    void readSignals() {
        signalfd_siginfo signal{};
        while (::read(signals_.get(), &signal, sizeof signal) == sizeof signal) {
            if (signal.ssi_signo == SIGUSR1)
                handle(gate::Disconnect{gate::everybody});
            else
                isEnding_ = true;
        }
    }

    const Options options_;
    const platform::FileDescriptor signals_;
    EventLoop loop_;
    bool isEnding_ = false;
    int status_ = EXIT_SUCCESS;
    EventLoop::Watch watch_;
    std::unique_ptr<ZelvoLine> line_;
    platform::FileDescriptor listener_;
    /// What the screen's thread wants done here.
    TaskQueue<> home_;
    std::unique_ptr<ScreenThread> screen_;
    std::unique_ptr<Gate> door_;
    /// What was said before there was a door.
    std::vector<gate::Message> early_;
};

}  // namespace

int main(int argc, char* argv[]) {
    platform::occupyStandardDescriptors();
    // One heap for both threads, of which neither does much in it.
    ::mallopt(M_ARENA_MAX, 1);
    auto options = parse(argc, argv);
    if (!options)
        return giveUp("server-failed", "Usage: screensharingd --socket PATH [--port PORT]");
    auto signals = blockSignals();
    platform::leaveNoCrashFile();
    // The VNC library counts descriptors in sets of 1,024.
    const rlimit descriptors{512, 512};
    ::setrlimit(RLIMIT_NOFILE, &descriptors);
    return Server(*options, std::move(signals)).run();
}
