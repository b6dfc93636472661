#include "platform/linux/nat/RouterPortMapping.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/nat/ChildProcess.h"
#include "tests/nat/RecordingLog.h"
#include "tests/nat/WaitingQueue.h"

namespace zelvo::test {

using namespace platform;
using namespace std::chrono_literals;

namespace {

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

/// A socket on loopback, with its close.
struct Socket {
    explicit Socket(int type, std::uint16_t port = 0) : descriptor(socket(AF_INET, type, 0)) {
        const auto address = loopback(port);
        bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    ~Socket() { close(descriptor); }

    bool connectTo(std::uint16_t port) const {
        const auto address = loopback(port);
        return connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
               0;
    }
    std::uint16_t port() const {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size);
        return ntohs(address.sin_port);
    }

    int descriptor;
};

class RouterPortMappingTest : public testing::Test {
  protected:
    RouterPortMappingTest() { listen(server.descriptor, 8); }

    void serve(const std::string& router) {
        RouterPortMapping::Options options;
        options.router = router;
        service = std::make_unique<RouterPortMapping>(queue, log, options);
    }
    NatPortMappingRequest request() const {
        NatPortMappingRequest request;
        request.protocol = NatProtocolTcp | NatProtocolUdp;
        request.internalPort = htons(server.port());
        request.externalPort = htons(23456);
        return request;
    }
    std::int32_t create() {
        return service->create(reference, request(),
                               [this](const auto& reply) { replies.push_back(reply); });
    }
    bool waitForReplies(std::size_t count) {
        return queue.runUntil([&] { return replies.size() >= count; });
    }

    WaitingQueue queue;
    RecordingLog log;
    Socket server{SOCK_STREAM};
    std::vector<NatPortMappingReply> replies;
    std::unique_ptr<RouterPortMapping> service;
    std::unique_ptr<NatPortMappingReference> reference;
};

}  // namespace

TEST_F(RouterPortMappingTest, MapsForwardsAndWithdrawsAtTheRealRouter) {
    ChildProcess router({ZELVO_ROUTER_PROGRAM});
    serve(router.readLine().substr(8));
    ASSERT_EQ(create(), NatErrorNone);
    ASSERT_NE(router.readLineBeginning("Mapped TCP"), "");
    EXPECT_FALSE(queue.runUntil([this] { return !replies.empty(); }, 50ms))
        << "nothing before setMainQueue";
    ASSERT_EQ(reference->setMainQueue(), NatErrorNone);
    ASSERT_TRUE(waitForReplies(1));
    EXPECT_EQ(replies[0].errorCode, 0);
    EXPECT_EQ(replies[0].externalAddress, htonl(INADDR_LOOPBACK));
    EXPECT_TRUE(replies[0].protocol & NatProtocolTcp);
    EXPECT_EQ(replies[0].ttl, 3600u);
    const std::uint16_t external = ntohs(replies[0].externalPort);

    Socket viewer(SOCK_STREAM);
    ASSERT_TRUE(viewer.connectTo(external));
    const int accepted = accept(server.descriptor, nullptr, nullptr);
    ASSERT_EQ(send(accepted, "RFB 003.008\n", 12, 0), 12);
    close(accepted);
    char text[16] = {};
    EXPECT_EQ(recv(viewer.descriptor, text, sizeof text, MSG_WAITALL), 12);
    EXPECT_STREQ(text, "RFB 003.008\n");

    // Taken back and asked for again: the old withdrawal does not undo the new mapping.
    reference.reset();
    ASSERT_EQ(create(), NatErrorNone);
    reference->setMainQueue();
    ASSERT_TRUE(waitForReplies(2));
    EXPECT_TRUE(log.has("has withdrawn the mapping"));
    EXPECT_TRUE(Socket(SOCK_STREAM).connectTo(external));

    service.reset();
    router.signal(SIGUSR1);
    EXPECT_EQ(router.readLineBeginning("Mappings"), "Mappings: 0");
    EXPECT_FALSE(Socket(SOCK_STREAM).connectTo(external));
    EXPECT_EQ(router.terminate(), 0);
}

TEST_F(RouterPortMappingTest, WithdrawalThatNobodyAnswersEndsAfterASecond) {
    auto router = std::make_unique<ChildProcess>(std::vector<std::string>{ZELVO_ROUTER_PROGRAM});
    const std::string address = router->readLine().substr(8);
    serve(address);
    create();
    reference->setMainQueue();
    ASSERT_TRUE(waitForReplies(1));
    router.reset();
    const Socket silent(
        SOCK_DGRAM, static_cast<std::uint16_t>(std::stoi(address.substr(address.find(':') + 1))));

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
    std::uint16_t unused = 0;
    { unused = Socket(SOCK_DGRAM).port(); }
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
    const auto refused = [this](const std::function<void(NatPortMappingRequest&)>& spoil) {
        NatPortMappingRequest spoilt = request();
        spoil(spoilt);
        return service->create(reference, spoilt, [](const auto&) {});
    };
    EXPECT_EQ(refused([](auto& r) { r.internalPort = 0; }), NatErrorBadParam);
    EXPECT_EQ(refused([](auto& r) { r.protocol = 0; }), NatErrorBadParam);
    EXPECT_EQ(refused([](auto& r) { r.protocol |= 1; }), NatErrorBadParam);
    EXPECT_EQ(refused([](auto& r) { r.flags = 1; }), NatErrorBadParam);
    EXPECT_EQ(service->create(reference, request(), nullptr), NatErrorBadParam);
    EXPECT_EQ(reference, nullptr);
    for (const char* router : {"router", "127.0.0.1:", "127.0.0.1:0", "127.0.0.1:70000", "::1"}) {
        serve(router);
        EXPECT_EQ(create(), NatErrorNoRouter) << router;
        EXPECT_TRUE(log.has(std::string(router) + "\" is no router"));
    }
}

}  // namespace zelvo::test
