#include "platform/linux/nat/RouterPortMapping.h"

#include <gtest/gtest.h>

#include "tests/support/ChildProcess.h"
#include "tests/support/RecordingLog.h"
#include "tests/support/Socket.h"
#include "tests/support/WaitingQueue.h"

namespace zelvo::test {

using namespace platform;
using namespace std::chrono_literals;

namespace {

class RouterPortMappingTest : public testing::Test {
  protected:
    void serve(const std::string& router) {
        RouterPortMapping::Options options;
        options.router = router;
        service = std::make_unique<RouterPortMapping>(queue, log, options);
    }
    NatPortMappingRequest request() const {
        NatPortMappingRequest request;
        request.protocol = NatProtocolTcp | NatProtocolUdp;
        request.internalPort = htons(static_cast<std::uint16_t>(server.port()));
        request.externalPort = htons(23456);
        return request;
    }
    std::int32_t create() {
        return service->create(reference, request(),
                               [this](const auto& reply) { replies.push_back(reply); });
    }
    bool waitForReplies(std::size_t count, std::chrono::milliseconds limit = 15s) {
        return queue.runUntil([&] { return replies.size() >= count; }, limit);
    }

    WaitingQueue queue;
    RecordingLog log;
    Socket server = std::move(Socket().bind());
    std::vector<NatPortMappingReply> replies;
    std::unique_ptr<RouterPortMapping> service;
    std::unique_ptr<NatPortMappingReference> reference;
};

}  // namespace

TEST_F(RouterPortMappingTest, MapsAndWithdrawsAtTheRealRouter) {
    ChildProcess router("exec " ZELVO_ROUTER_PROGRAM);
    const std::string address = router.readLine().substr(8);
    serve(address);
    ASSERT_EQ(create(), NatErrorNone);
    ASSERT_NE(router.readLineBeginning("Mapped TCP"), "");
    EXPECT_FALSE(waitForReplies(1, 50ms)) << "nothing before setMainQueue";
    ASSERT_EQ(reference->setMainQueue(), NatErrorNone);
    ASSERT_TRUE(waitForReplies(1));
    EXPECT_EQ(replies[0].errorCode, 0);
    EXPECT_EQ(replies[0].externalAddress, htonl(INADDR_LOOPBACK));
    EXPECT_TRUE(replies[0].protocol & NatProtocolTcp);
    EXPECT_EQ(replies[0].ttl, 3600u);
    EXPECT_TRUE(Socket().connect(ntohs(replies[0].externalPort)));

    // A withdrawal that nobody answers is over after a second.
    router.end(SIGKILL);
    Socket silent(AF_INET, SOCK_DGRAM);
    silent.bind(std::stoi(address.substr(address.find(':') + 1)));
    const auto begin = std::chrono::steady_clock::now();
    reference.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 100ms) << "the main thread does not wait";
    service.reset();
    const auto took = std::chrono::steady_clock::now() - begin;
    EXPECT_GT(took, 900ms);
    EXPECT_LT(took, 1400ms);
    EXPECT_TRUE(log.has("has not confirmed the withdrawal"));
}

TEST_F(RouterPortMappingTest, RouterThatIsNotThereIsAFailureReply) {
    const int unused = Socket(AF_INET, SOCK_DGRAM).bind().port();
    serve("127.0.0.1:" + std::to_string(unused));
    create();
    reference->setMainQueue();
    ASSERT_TRUE(waitForReplies(1));
    EXPECT_EQ(replies[0].errorCode, NatErrorPortMappingUnsupported);
    EXPECT_EQ(replies[0].externalPort, 0);

    create();
    reference.reset();
    queue.drain();
    EXPECT_EQ(replies.size(), 1u) << "nothing after the reference has gone";
}

TEST_F(RouterPortMappingTest, NonsenseIsRefusedAtOnce) {
    serve("127.0.0.1:9");
    for (const auto spoil : {+[](NatPortMappingRequest& r) { r.internalPort = 0; },
                             +[](NatPortMappingRequest& r) { r.protocol = 0; },
                             +[](NatPortMappingRequest& r) { r.protocol |= 1; },
                             +[](NatPortMappingRequest& r) { r.flags = 1; }}) {
        NatPortMappingRequest spoilt = request();
        spoil(spoilt);
        EXPECT_EQ(service->create(reference, spoilt, [](const auto&) {}), NatErrorBadParam);
    }
    EXPECT_EQ(service->create(reference, request(), nullptr), NatErrorBadParam);
    EXPECT_EQ(reference, nullptr);
    for (const char* router : {"router", "127.0.0.1:", "127.0.0.1:0", "127.0.0.1:70000", "::1"}) {
        serve(router);
        EXPECT_EQ(create(), NatErrorNoRouter) << router;
        EXPECT_TRUE(log.has(std::string(router) + "\" is no router"));
    }
}

}  // namespace zelvo::test
