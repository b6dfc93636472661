#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>

#include <array>
#include <csignal>
#include <iostream>

#include "router/NatPmpServer.h"
#include "router/Options.h"

namespace {

using namespace zelvo::router;
using zelvo::platform::FileDescriptor;

void say(const std::string& line) {
    std::cout << line << std::endl;
}

FileDescriptor openSignals() {
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGTERM, SIGINT, SIGUSR1}) {
        sigaddset(&signals, number);
    }
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return FileDescriptor(signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC));
}

void answerDatagram(const FileDescriptor& socket, NatPmpServer& server) {
    std::array<std::uint8_t, 2048> buffer;
    sockaddr_in asker{};
    socklen_t size = sizeof asker;
    const ssize_t length = recvfrom(socket.get(), buffer.data(), buffer.size(), 0,
                                    reinterpret_cast<sockaddr*>(&asker), &size);
    if (length < 0) {
        return;
    }
    const auto response = server.answer({buffer.data(), static_cast<std::size_t>(length)},
                                        ntohl(asker.sin_addr.s_addr), Clock::now());
    if (!response.empty()) {
        sendto(socket.get(), response.data(), response.size(), MSG_NOSIGNAL,
               reinterpret_cast<const sockaddr*>(&asker), size);
    }
}

int run(const Options& options) {
    const FileDescriptor signals = openSignals();
    const FileDescriptor socket = openDatagramSocket(options.address);
    if (!socket || !signals) {
        std::cerr << "zelvo-router: cannot listen on " << text(options.address) << std::endl;
        return 1;
    }
    EventLoop loop;
    MappingTable table(loop, options.external, say);
    NatPmpServer server(table, Clock::now());
    bool ending = false;

    EventLoop::Watch requests(loop, socket.get(), [&](auto) { answerDatagram(socket, server); });
    requests.setEvents(EPOLLIN);
    EventLoop::Watch quits(loop, signals.get(), [&](auto) {
        signalfd_siginfo signal{};
        if (read(signals.get(), &signal, sizeof signal) == sizeof signal) {
            ending = signal.ssi_signo != SIGUSR1;
            if (!ending) {
                say(table.text(Clock::now()));
            }
        }
    });
    quits.setEvents(EPOLLIN);

    say("Router: " + text(localEndpoint(socket)));
    while (!ending) {
        loop.turn(table.nextExpiry());
        table.expire(Clock::now());
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::string error;
    const auto options = Options::parse({argv + 1, argv + (argc > 0 ? argc : 1)}, error);
    if (!options) {
        std::cerr << "zelvo-router: " << error << "\n" << Options::helpText();
        return 2;
    }
    if (options->answer) {
        std::cout << options->answer << std::flush;
        return std::cout ? 0 : 1;
    }
    return run(*options);
}
