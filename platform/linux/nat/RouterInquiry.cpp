#include "platform/linux/nat/RouterInquiry.h"

#include <algorithm>

#include "platform/linux/nat/Conversations.h"
#include "platform/linux/nat/KernelRoutes.h"
#include "platform/linux/nat/base/PollLoop.h"
#include "platform/linux/nat/base/SocketNetwork.h"

namespace zelvo::platform {

RouterFacts inquireOfRouter(const std::string& router, std::chrono::milliseconds patience) {
    RouterFacts facts;
    PollLoop loop;
    SocketNetwork network(loop);
    const KernelRoutes routes;
    Conversations::Options options;
    if (!router.empty() && !(options.router = parseEndpoint(router))) {
        return facts;
    }
    const Conversations conversations(network, routes, options);
    const auto route = conversations.readRoute();
    if (!route) {
        return facts;
    }
    facts.router = route->router;
    // What is never asked for; a conversation wants to know what it would be about.
    constexpr std::uint16_t AnyPort = 5900;
    const auto all =
        conversations.make(*route, {.internalPort = AnyPort, .externalPort = AnyPort}, {});
    const auto isOpen = [](const auto& one) {
        return one->phase() == RouterMapping::Phase::Probing;
    };
    for (const auto end = network.now() + patience;
         network.now() < end && std::ranges::any_of(all, isOpen);) {
        NatTime next = end;
        for (const auto& one : all) {
            if (one->nextWake() <= network.now()) {
                one->wake();
            }
            next = std::min(next, one->nextWake());
        }
        loop.turn(next);
    }
    for (const auto& one : all) {
        if (one->phase() == RouterMapping::Phase::Ready) {
            facts.protocols.emplace_back(one->protocol());
            facts.externalAddress = std::max(facts.externalAddress, one->externalAddress());
        } else {
            facts.failure = std::max(facts.failure, one->failure());
        }
    }
    return facts;
}

}  // namespace zelvo::platform
