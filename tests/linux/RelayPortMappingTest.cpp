#include "platform/linux/relay/RelayPortMapping.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <QCoreApplication>
#include <QTimer>

#include "platform/linux/nat/ExternalAddress.h"
#include "tests/support/Socket.h"
#include "tests/support/WaitingQueue.h"

namespace zelvo::platform {

namespace {

using namespace std::chrono_literals;

struct GivenRouter : NatPortMapping {
    struct Reference : NatPortMappingReference {
        std::int32_t setMainQueue() override { return NatErrorNone; }
    };
    std::int32_t create(std::unique_ptr<NatPortMappingReference>& reference,
                        const NatPortMappingRequest&, Callback callback) override {
        reference = std::make_unique<Reference>();
        says = std::move(callback);
        return NatErrorNone;
    }
    Callback says;
};

/// A router's word, what the service offers, and whether a relay is asked then.
struct Case {
    const char* what;
    const char* mapped;  ///< null for silence, "" for a refusal
    const char* seenFrom;
    bool offers = true;
    RelayUse use = RelayUse::WhereNeeded;
    bool asksRelay = false;
    std::chrono::milliseconds offersAfter = 0ms;
};

// The relay of these hangs up, so that what the router says counts in the end.
TEST(RelayPortMapping, PrefersTheRouterWhereItsWayLeadsHere) {
    const Case cases[] = {
        {"the service sees the same", "203.0.113.7", "203.0.113.7"},
        {"a service at home", "203.0.113.7", "192.168.1.5"},
        {"a service on this computer", "127.0.0.1", "127.0.0.1"},
        {"a second router", "203.0.113.7", "198.51.100.9", true, RelayUse::WhereNeeded, true},
        {"a private address", "192.168.1.2", "198.51.100.9", true, RelayUse::WhereNeeded, true},
        {"a provider's", "100.64.0.9", "100.64.0.9", true, RelayUse::WhereNeeded, true},
        {"a refusal", "", "198.51.100.9", true, RelayUse::WhereNeeded, true},
        {"a late offer", "", "198.51.100.9", true, RelayUse::WhereNeeded, true, 150ms},
        {"silence", nullptr, "198.51.100.9", true, RelayUse::WhereNeeded, true},
        {"forbidden", "100.64.0.9", "198.51.100.9", true, RelayUse::Never},
        {"preferred", "203.0.113.7", "203.0.113.7", true, RelayUse::Preferred, true},
        {"preferred, and none", "203.0.113.7", "203.0.113.7", false, RelayUse::Preferred},
        {"no relay", "100.64.0.9", "198.51.100.9", false},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        int count = 0;
        QCoreApplication application(count, nullptr);
        int relaysAsked = 0;
        test::Socket relay;
        relay.bind();
        const auto place = "127.0.0.1:" + std::to_string(relay.port());
        const RelayOffer offer{place, inet_addr("192.0.2.9"), inet_addr(each.seenFrom), "ticket"};
        test::WaitingQueue queue;
        GivenRouter router;
        RelayPortMapping mapping(
            queue, router,
            {.certificateFile = "",
             .isPrivate = isBehindAnotherRouter,
             .use = [&] { return each.use; },
             .ask =
                 [&](const auto&, auto done) {
                     QTimer::singleShot(each.offersAfter, [&, done] {
                         done(each.offers ? std::optional(offer) : std::nullopt);
                     });
                 },
             .connect = [](const auto&) { return FileDescriptor(); },
             .told = [](const auto&) {},
             .patience = 50ms});
        const auto runUntil = [&](const std::function<bool()>& condition) {
            return queue.runUntil(
                [&] {
                    QCoreApplication::processEvents();
                    return condition();
                },
                5s, 5ms);
        };
        const auto askRelay = [&] {
            pollfd waiting{relay.descriptor(), POLLIN, 0};
            if (::poll(&waiting, 1, 0) == 1 && ++relaysAsked > 0)
                (void)relay.accept();
            return relaysAsked > 0;
        };
        std::unique_ptr<NatPortMappingReference> reference;
        std::vector<NatPortMappingReply> heard;
        ASSERT_EQ(
            mapping.create(reference, {.protocol = NatProtocolTcp, .internalPort = htons(5900)},
                           [&](const auto& reply) { heard.push_back(reply); }),
            NatErrorNone);
        reference->setMainQueue();
        NatPortMappingReply reply;
        reply.errorCode = NatErrorPortMappingDisabled;
        if (each.mapped && *each.mapped)
            reply = {.externalAddress = inet_addr(each.mapped), .externalPort = htons(20000)};
        // Who prefers a relay has no port opened before it fails.
        const bool relayIsFirst = each.use == RelayUse::Preferred && each.offers;
        const auto routerSays = [&] {
            EXPECT_TRUE(runUntil([&] { return router.says != nullptr; }));
            router.says(reply);
        };
        if (each.mapped && !relayIsFirst)
            routerSays();
        EXPECT_TRUE(runUntil([&] { return askRelay() || !heard.empty(); }));
        EXPECT_EQ(router.says == nullptr, relayIsFirst);
        EXPECT_EQ(relaysAsked > 0, each.asksRelay);
        EXPECT_EQ(heard.empty(), each.asksRelay);
        if (!each.mapped)
            reply = {.externalAddress = inet_addr("203.0.113.7"), .externalPort = htons(20000)};
        queue.drain();
        if (!each.mapped || relayIsFirst)
            routerSays();
        EXPECT_TRUE(runUntil([&] { return !heard.empty(); }));
        ASSERT_EQ(heard.size(), 1U);
        EXPECT_EQ(heard[0].externalPort, reply.externalPort);
        EXPECT_EQ(heard[0].externalAddress, reply.externalAddress);
    }
}

}  // namespace

}  // namespace zelvo::platform
