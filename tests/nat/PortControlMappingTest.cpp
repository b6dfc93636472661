#include "platform/linux/nat/PortControlMapping.h"

#include "platform/linux/nat/NatPmpWire.h"
#include "platform/linux/nat/PcpWire.h"
#include "tests/nat/VirtualNetwork.h"

namespace zelvo::test {

using namespace platform;
using Phase = RouterMapping::Phase;

namespace {

constexpr std::uint32_t External = 0xcb007105;

/// A router that speaks NAT-PMP, with a few faults to choose from.
class NatPmpPeer {
  public:
    explicit NatPmpPeer(VirtualNetwork& network) : network_(network) {
        network.router = [this](const Bytes& request) { take(request); };
    }

    std::uint32_t epochNow() const {
        return epoch + static_cast<std::uint32_t>(network_.elapsed() / 1s);
    }

    bool silent = false;
    std::uint32_t epoch = 1000;
    std::uint32_t address = External;
    std::uint32_t lifetime = 3600;
    /// What is granted instead of the wish.
    std::uint16_t tcpPort = 0;
    std::uint16_t udpPort = 0;
    std::uint16_t udpResult = 0;
    std::vector<Bytes> extra;

  private:
    void take(const Bytes& request) {
        if (silent) {
            return;
        }
        for (const Bytes& bytes : extra) {
            network_.answer(bytes);
        }
        if (request[1] == 0) {
            network_.answer(Packet()
                                .u8(0)    // version
                                .u8(128)  // response to "external address"
                                .u16(0)   // success
                                .u32(epochNow())
                                .u32(address));
            return;
        }
        const bool tcp = request[1] == 2;
        const std::uint32_t asked = read32(request, 8);
        const std::uint16_t instead = tcp ? tcpPort : udpPort;
        const std::uint16_t port = asked == 0 ? 0 : instead ? instead : read16(request, 6);
        network_.answer(Packet()
                            .u8(0)                             // version
                            .u8(tcp ? 130 : 129)               // response to "map"
                            .u16(tcp ? 0 : udpResult)          // result
                            .u32(epochNow())                   // epoch
                            .u16(read16(request, 4))           // internal port
                            .u16(port)                         // external port
                            .u32(asked == 0 ? 0 : lifetime));  // lifetime
    }

    VirtualNetwork& network_;
};

class PortControlMappingTest : public testing::Test {
  protected:
    void makeNatPmp() {
        mapping = std::make_unique<PortControlMapping>(
            network, Ipv4Endpoint{0xc0a80101, 5351}, PortWish{5900, 23456},
            [](std::uint32_t) { return std::make_unique<NatPmpWire>(5900); });
    }
    void makePcp() {
        mapping = std::make_unique<PortControlMapping>(
            network, Ipv4Endpoint{0xc0a80101, 5351}, PortWish{5900, 23456, true, false},
            [](std::uint32_t local) {
                return std::make_unique<PcpWire>(5900, local, PcpNonces{{0xab}, {0xcd}});
            });
    }
    void run(milliseconds duration) {
        network.run(
            duration, [this] { return mapping->nextWake(); }, [this] { mapping->wake(); });
    }
    void map() {
        run(10ms);
        ASSERT_EQ(mapping->phase(), Phase::Ready);
        mapping->ask();
        run(10ms);
        ASSERT_EQ(mapping->phase(), Phase::Mapped);
        network.sent.clear();
    }
    std::vector<milliseconds> times() const {
        std::vector<milliseconds> times;
        for (const auto& sent : network.sent) {
            times.push_back(sent.at);
        }
        return times;
    }
    static Bytes mapRequest(std::uint8_t opcode, std::uint16_t port, std::uint32_t lifetime) {
        return Packet()
            .u8(0)       // version
            .u8(opcode)  // 1 maps UDP, 2 maps TCP
            .u16(0)      // reserved
            .u16(5900)   // internal port
            .u16(port)   // external port
            .u32(lifetime);
    }
    /// What was sent, less the questions for the address.
    std::vector<Bytes> mapRequests() const {
        std::vector<Bytes> requests;
        for (const auto& sent : network.sent) {
            if (sent.bytes.size() > 2) {
                requests.push_back(sent.bytes);
            }
        }
        return requests;
    }

    VirtualNetwork network;
    std::unique_ptr<PortControlMapping> mapping;
};

}  // namespace

TEST_F(PortControlMappingTest, AsksNineTimesWithDoublingWaitsAndGivesUp) {
    makeNatPmp();
    run(127s);
    EXPECT_EQ(times(), (std::vector<milliseconds>{0ms, 250ms, 750ms, 1750ms, 3750ms, 7750ms,
                                                  15750ms, 31750ms, 63750ms}));
    EXPECT_EQ(mapping->phase(), Phase::Probing);
    run(1s);
    EXPECT_EQ(mapping->phase(), Phase::Over);
    EXPECT_EQ(mapping->failure(), NatFailure::Silent);
}

TEST_F(PortControlMappingTest, MapsBothTransportsRenewsAtHalfLifeAndWithdraws) {
    NatPmpPeer peer(network);
    makeNatPmp();
    run(10ms);
    mapping->ask();
    EXPECT_EQ(mapRequests(),
              (std::vector<Bytes>{mapRequest(2, 23456, 3600), mapRequest(1, 23456, 3600)}));
    run(10ms);
    EXPECT_EQ(mapping->grant(), (PortGrant{External, 23456, true, true, 3600s}));

    network.sent.clear();
    run(1799s);
    EXPECT_TRUE(network.sent.empty());
    peer.address = External + 1;
    run(2s);
    EXPECT_EQ(network.sent.size(), 3u);
    EXPECT_EQ(mapRequests()[0], mapRequest(2, 23456, 3600));
    EXPECT_EQ(mapping->grant().externalAddress, External + 1);

    network.sent.clear();
    mapping->release();
    EXPECT_EQ(mapRequests(), (std::vector<Bytes>{mapRequest(2, 0, 0), mapRequest(1, 0, 0)}));
    run(10ms);
    EXPECT_TRUE(mapping->withdrawn());
}

TEST_F(PortControlMappingTest, UnansweredWithdrawalIsSentTwiceAndOverAfterOneSecond) {
    NatPmpPeer peer(network);
    makeNatPmp();
    map();
    peer.silent = true;
    mapping->release();
    run(999ms);
    EXPECT_EQ(network.sent.size(), 4u);
    EXPECT_EQ(mapping->phase(), Phase::Releasing);
    run(1ms);
    EXPECT_EQ(mapping->phase(), Phase::Over);
    EXPECT_FALSE(mapping->withdrawn());
}

TEST_F(PortControlMappingTest, SecondTransportFollowsTheFirstsPort) {
    NatPmpPeer peer(network);
    peer.tcpPort = 30000;
    makeNatPmp();
    run(10ms);
    mapping->ask();
    run(100ms);
    EXPECT_EQ(mapping->grant(), (PortGrant{External, 30000, true, true, 3600s}));
    EXPECT_EQ(mapRequests().back(), mapRequest(1, 30000, 3600));

    // A router that cannot give UDP the same port is asked once more, and then left alone.
    peer.udpPort = 40000;
    makeNatPmp();
    run(10ms);
    mapping->ask();
    run(300ms);
    EXPECT_EQ(mapping->grant(), (PortGrant{External, 30000, true, false, 3600s}));
    EXPECT_EQ(mapRequests().back(), mapRequest(1, 0, 0));
    network.sent.clear();
    run(60s);
    EXPECT_TRUE(network.sent.empty());
}

TEST_F(PortControlMappingTest, RefusedUdpLeavesTcpMapped) {
    NatPmpPeer peer(network);
    peer.udpResult = 4;
    makeNatPmp();
    run(10ms);
    mapping->ask();
    run(10ms);
    EXPECT_EQ(mapping->grant(), (PortGrant{External, 23456, true, false, 3600s}));
}

TEST_F(PortControlMappingTest, RouterThatForgotIsAskedAtOnceForTheSamePort) {
    NatPmpPeer peer(network);
    makeNatPmp();
    map();
    run(600s);
    EXPECT_TRUE(network.sent.empty());
    peer.epoch = 0;
    // Its announcement to all hosts, with an epoch that has begun again.
    mapping->announced(Packet().u8(0).u8(128).u16(0).u32(3).u32(External));
    peer.epoch = -static_cast<std::uint32_t>(network.elapsed() / 1s) + 3;
    run(10ms);
    EXPECT_EQ(mapRequests(),
              (std::vector<Bytes>{mapRequest(2, 23456, 3600), mapRequest(1, 23456, 3600)}));
    network.sent.clear();
    run(60s);
    EXPECT_TRUE(network.sent.empty()) << "an epoch that goes on is no news";
}

TEST_F(PortControlMappingTest, LeaseThatCannotBeRenewedEnds) {
    NatPmpPeer peer(network);
    makeNatPmp();
    map();
    peer.silent = true;
    run(3599s);
    EXPECT_EQ(mapping->phase(), Phase::Mapped);
    EXPECT_GT(network.sent.size(), 18u);
    run(3s);
    EXPECT_EQ(mapping->phase(), Phase::Over);
    EXPECT_EQ(mapping->failure(), NatFailure::Silent);
}

TEST_F(PortControlMappingTest, ForeignLateAndDamagedPacketsChangeNothing) {
    NatPmpPeer peer(network);
    peer.extra = {
        {},
        {0, 128},
        Packet().u8(0).u8(130).u16(0).u32(1000).u16(5901).u16(666).u32(3600),  // another port
        Packet().u8(0).u8(130).u16(0).u32(1000).u16(5900).u16(0).u32(0),       // a late withdrawal
        Packet().u8(0).u8(131).u16(0).u32(1000).u16(5900).u16(666).u32(3600),  // no such opcode
        Packet().u8(1).u8(130).u16(0).u32(1000).u16(5900).u16(666).u32(3600),  // no such version
        Packet().u8(0).u8(2).u16(0).u16(5900).u16(666).u32(3600),              // a request
    };
    makeNatPmp();
    map();
    EXPECT_EQ(mapping->grant().externalPort, 23456);
    EXPECT_EQ(mapping->ignored(), 21);
}

TEST_F(PortControlMappingTest, RefusalsAndUnreachablePortsEndItAtOnce) {
    const auto outcome = [this](const std::function<void()>& act) {
        network.router = [act](const Bytes&) { act(); };
        makeNatPmp();
        run(10ms);
        EXPECT_EQ(mapping->phase(), Phase::Over);
        return mapping->failure();
    };
    EXPECT_EQ(outcome([this] { network.refuse(); }), NatFailure::Unsupported);
    EXPECT_EQ(outcome([this] { network.answer(Packet().u8(0).u8(128).u16(2).u32(9).u32(0)); }),
              NatFailure::Refused);
    EXPECT_EQ(outcome([this] { network.answer(Packet().u8(2).u8(128).u16(1).fill(20, 0)); }),
              NatFailure::Unsupported);
    network.reachable = false;
    makeNatPmp();
    EXPECT_EQ(mapping->phase(), Phase::Over);
}

TEST_F(PortControlMappingTest, PcpKeepsItsNonceAndRenewsWithinItsWindow) {
    const auto answerMap = [this](const Bytes& request, std::uint32_t epoch, std::uint8_t nonce) {
        Packet response;
        response
            .u8(2)                    // version
            .u8(0x81)                 // response to MAP
            .u8(0)                    // reserved
            .u8(0)                    // success
            .u32(read32(request, 4))  // lifetime
            .u32(epoch)               // epoch
            .fill(12, 0)              // reserved
            .u8(nonce)                // nonce
            .fill(11, 0)
            .u8(6)        // TCP
            .fill(3, 0)   // reserved
            .u16(5900)    // internal port
            .u16(24000)   // external port
            .fill(10, 0)  // external address
            .u16(0xffff)
            .u32(External);
        network.answer(response);
    };
    network.router = [&](const Bytes& request) {
        const auto epoch = static_cast<std::uint32_t>(network.elapsed() / 1s);
        EXPECT_EQ(read32(request, 20), 0xc0a80114u) << "the client's address";
        if (request[1] == 0) {
            network.answer(Packet().u8(2).u8(0x80).u16(0).u32(0).u32(epoch).fill(12, 0));
            return;
        }
        EXPECT_EQ(request[24], 0xab);
        answerMap(request, epoch, 0xac);
        answerMap(request, epoch, 0xab);
    };
    makePcp();
    map();
    EXPECT_EQ(mapping->ignored(), 1);
    EXPECT_EQ(mapping->grant(), (PortGrant{External, 24000, true, false, 3600s}));

    run(1799s);
    EXPECT_TRUE(network.sent.empty());
    run(452s);
    ASSERT_EQ(network.sent.size(), 1u);
    EXPECT_EQ(read16(network.sent[0].bytes, 42), 24000) << "asked for again";

    network.sent.clear();
    mapping->release();
    ASSERT_EQ(network.sent.size(), 1u);
    EXPECT_EQ(read32(network.sent[0].bytes, 4), 0u) << "lifetime";
    run(10ms);
    EXPECT_TRUE(mapping->withdrawn());
}

}  // namespace zelvo::test
