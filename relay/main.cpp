#include <event2/event.h>
#include <sys/socket.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <span>
#include <string>
#include <thread>
#include <utility>

#include "relay/RelayLoop.h"
#include "relay/RelayOptions.h"
#include "relay/RelayShared.h"
#include "serving/Listening.h"
#include "serving/Metrics.h"
#include "serving/OperatorServer.h"
#include "serving/ServerSignals.h"
#include "serving/TlsContext.h"

namespace {

using namespace zelvo::relay;
namespace serving = zelvo::serving;

/// What the kernel keeps for a peer that takes nothing; it doubles each for what it costs itself.
/// Connections have them from the socket that accepts them.
constexpr int SendBuffer = 48 * 1024;
constexpr int ReceiveBuffer = 72 * 1024;

int complain(const std::string& text) {
    std::fprintf(stderr, "zelvo-relay: %s\n", text.c_str());
    return EXIT_FAILURE;
}

void makeLoops(RelayShared& shared) {
    const auto& options = shared.options;
    const auto cores = std::max<std::size_t>(1, std::thread::hardware_concurrency());
    // A token's first byte has to tell them apart.
    const auto loops = std::min<std::size_t>(options.loops > 0 ? options.loops : cores, 64);
    const auto limit = serving::connectionLimit();
    const auto most = options.connections > 0 ? std::min(options.connections, limit) : limit;
    for (std::size_t i = 0; i < loops; ++i)
        shared.loops.push_back(std::make_unique<RelayLoop>(shared, i, loops, most));
}

int listenOn(RelayShared& shared) {
    const auto socket = serving::listenOn(shared.options.address, shared.options.port);
    setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &SendBuffer, sizeof SendBuffer);
    setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &ReceiveBuffer, sizeof ReceiveBuffer);
    for (auto& loop : shared.loops)
        if (!socket || !loop->listen(socket.get()))
            return 0;
    return serving::portOf(socket.get());
}

/// Serves until a signal ends it.
int serve(RelayShared& shared, serving::ServerSignals& signals) {
    const auto& options = shared.options;
    serving::OperatorServer operators(shared.metrics, [] { return true; });
    if (!options.operators.empty() && !operators.start(options.operators))
        return complain("cannot listen on " + options.operators);
    makeLoops(shared);
    const int port = listenOn(shared);
    if (port == 0)
        return complain("cannot listen on " + options.address + ", port " +
                        std::to_string(options.port));
    for (auto& loop : shared.loops)
        loop->start();
    std::promise<void> end;
    signals.start({.end =
                       [&end, isOver = false]() mutable {
                           if (!std::exchange(isOver, true))
                               end.set_value();
                       },
                   .reload =
                       [&] {
                           std::string error;
                           auto fresh =
                               serving::TlsContext::read(options.certificate, options.key, error);
                           if (!fresh)
                               return void(complain(error + "; the old certificate goes on"));
                           shared.setTls(std::move(fresh));
                           std::fputs("zelvo-relay: new certificate\n", stderr);
                       }});
    std::printf("Relay: %s:%d\n", options.address.c_str(), port);
    std::fflush(stdout);
    end.get_future().wait();
    for (auto& loop : shared.loops)
        loop->beginStop();
    for (auto& loop : shared.loops)
        loop->join();
    signals.stop();
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    constexpr int badUsage = 2;
    std::string error;
    std::span arguments(argv, static_cast<std::size_t>(argc));
    auto options = RelayOptions::parse(arguments.subspan(argc > 0 ? 1 : 0), error);
    if (!options) {
        complain(error);
        std::fputs(RelayOptions::usage().c_str(), stderr);
        return badUsage;
    }
    if (!options->answer.empty())
        return std::fputs(options->answer.c_str(), stdout) >= 0 && std::fflush(stdout) == 0
                   ? EXIT_SUCCESS
                   : EXIT_FAILURE;
    std::signal(SIGPIPE, SIG_IGN);  // a client that is gone is that connection's failure alone
    event_set_log_callback([](int, const char*) {});
    serving::ServerSignals signals;
    auto tls = serving::TlsContext::read(options->certificate, options->key, error);
    if (!tls)
        return complain(error);
    auto services = Ed25519::readPublic(options->serviceKeys, error);
    if (services.empty())
        return complain(error);
    auto own = Ed25519::readPrivate(options->leaseKey, error);
    if (!own)
        return complain(error);
    serving::Metrics metrics;
    RelayShared shared(std::move(*options), std::move(services), std::move(*own), metrics);
    shared.setTls(std::move(tls));
    return serve(shared, signals);
}
