// Maps one port and keeps it mapped until SIGTERM:
//     zelvo-map-port INTERNAL EXTERNAL [PROTOCOL [STATE-FOLDER]]
// PROTOCOL is pcp, nat-pmp, upnp or all. Each reply is one line on standard output, the log goes to
// standard error.

#include <arpa/inet.h>
#include <poll.h>
#include <sys/signalfd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iostream>

#include "platform/linux/nat/RouterPortMapping.h"
#include "tests/support/WaitingQueue.h"

namespace {

using namespace zelvo::platform;

class ErrorLog : public Log {
  public:
    void line(std::string_view text) override { standardError(std::string(text) + "\n"); }
    void standardError(std::string_view text) override { std::cerr << text << std::flush; }
};

void print(const NatPortMappingReply& reply, std::chrono::steady_clock::duration took) {
    char address[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &reply.externalAddress, address, sizeof address);
    if (reply.externalPort != 0) {
        std::cout << "Mapped " << address << ":" << ntohs(reply.externalPort);
    } else {
        std::cout << "Failed " << reply.errorCode;
    }
    std::cout << " after " << std::chrono::duration_cast<std::chrono::microseconds>(took).count()
              << " us" << std::endl;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::cerr << "usage: zelvo-map-port INTERNAL EXTERNAL [PROTOCOL [STATE-FOLDER]]\n";
        return 2;
    }
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    const int ending = signalfd(-1, &signals, SFD_CLOEXEC);

    const std::string protocol = argc > 3 ? argv[3] : "all";
    RouterPortMapping::Options options;
    options.pcp = protocol == "pcp" || protocol == "all";
    options.natPmp = protocol == "nat-pmp" || protocol == "all";
    options.upnp = protocol == "upnp" || protocol == "all";
    options.stateFolder = argc > 4 ? argv[4] : "";

    zelvo::test::WaitingQueue queue;
    ErrorLog log;
    const auto begun = std::chrono::steady_clock::now();
    RouterPortMapping service(queue, log, options);
    NatPortMappingRequest request;
    request.protocol = NatProtocolTcp | NatProtocolUdp;
    request.internalPort = htons(static_cast<std::uint16_t>(std::atoi(argv[1])));
    request.externalPort = htons(static_cast<std::uint16_t>(std::atoi(argv[2])));
    std::unique_ptr<NatPortMappingReference> reference;
    if (service.create(reference, request, [&](const NatPortMappingReply& reply) {
            print(reply, std::chrono::steady_clock::now() - begun);
        }) != NatErrorNone) {
        return 1;
    }
    reference->setMainQueue();
    queue.runUntil(
        [ending] {
            pollfd ready{ending, POLLIN, 0};
            return poll(&ready, 1, 0) > 0;
        },
        std::chrono::hours(1), std::chrono::milliseconds(20));
    return 0;
}
