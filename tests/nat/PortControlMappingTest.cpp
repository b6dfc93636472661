#include "platform/linux/nat/port_control/PortControlMapping.h"

#include "platform/linux/nat/codec/NatPmpCodec.h"
#include "platform/linux/nat/port_control/NatPmpWire.h"
#include "platform/linux/nat/port_control/PcpWire.h"
#include "tests/nat/VirtualNetwork.h"

namespace zelvo::test {

using namespace platform;
using Phase = RouterMapping::Phase;

namespace {

constexpr std::uint32_t External = 0xcb007105;

Bytes mapRequest(NatPmpOpcode opcode, std::uint16_t port, std::uint32_t lifetime) {
    return encode(NatPmpRequest{opcode, 5900, port, lifetime});
}
const std::vector<Bytes> BothMapped{mapRequest(NatPmpOpcode::MapTcp, 23456, 3600),
                                    mapRequest(NatPmpOpcode::MapUdp, 23456, 3600)};

/// With a router that speaks NAT-PMP, and a few faults to choose from.
class PortControlMappingTest : public testing::Test {
  protected:
    PortControlMappingTest() {
        network.router = [this](const Bytes& request) {
            if (!silent) {
                answer(*decodeNatPmpRequest(request));
            }
        };
    }
    void answer(const NatPmpRequest& asked) {
        for (const Bytes& bytes : extra) {
            network.answer(bytes);
        }
        epoch -= epochLeap;
        const bool tcp = asked.opcode == NatPmpOpcode::MapTcp;
        const auto instead = tcp ? tcpPort : udpPort;
        const auto now = epoch + static_cast<std::uint32_t>(network.elapsed() / 1s);
        NatPmpResponse response{asked.opcode, NatPmpSuccess, now, address};
        if (asked.opcode != NatPmpOpcode::ExternalAddress) {
            response.result = asked.lifetime == 0 ? NatPmpSuccess : tcp ? tcpResult : udpResult;
            response.internalPort = asked.internalPort;
            response.externalPort = asked.lifetime ? instead.value_or(asked.externalPort) : 0;
            response.lifetime = asked.lifetime ? lifetime.value_or(asked.lifetime) : 0;
        }
        network.answer(encode(response));
    }

    void open(
        const PortWish& wish = {5900, 23456},
        const PortControlMapping::MakeWire& makeWire = [](std::uint32_t) {
            return std::make_unique<NatPmpWire>(5900);
        }) {
        mapping = std::make_unique<PortControlMapping>(network, Ipv4Endpoint{0xc0a80101, 5351},
                                                       0xc0a80114, wish, makeWire);
        run(10ms);
    }
    void run(milliseconds duration) {
        network.run(
            duration, [this] { return mapping->nextWake(); }, [this] { mapping->wake(); });
    }
    void map(milliseconds duration = 10ms) {
        ASSERT_EQ(mapping->phase(), Phase::Ready);
        mapping->ask();
        run(duration);
        ASSERT_EQ(mapping->phase(), Phase::Mapped);
    }
    /// What was sent since the last call, less the questions for the address.
    std::vector<Bytes> mapRequests() {
        std::vector<Bytes> requests;
        for (const auto& sent : std::exchange(network.sent, {})) {
            if (sent.bytes.size() > 2) {
                requests.push_back(sent.bytes);
            }
        }
        return requests;
    }

    VirtualNetwork network;
    std::unique_ptr<PortControlMapping> mapping;
    bool silent = false;
    std::uint32_t epoch = 1000;
    std::uint32_t address = External;
    /// What is granted instead of the wish.
    std::optional<std::uint16_t> tcpPort;
    std::optional<std::uint16_t> udpPort;
    std::uint16_t tcpResult = NatPmpSuccess;
    std::uint16_t udpResult = NatPmpSuccess;
    std::optional<std::uint32_t> lifetime;
    std::uint32_t epochLeap = 0;
    std::vector<Bytes> extra;
};

}  // namespace

TEST_F(PortControlMappingTest, AsksNineTimesWithDoublingWaitsAndGivesUp) {
    silent = true;
    open();
    run(126990ms);
    std::vector<milliseconds> times;
    for (const auto& sent : network.sent) {
        times.push_back(sent.at);
    }
    EXPECT_EQ(times, (std::vector<milliseconds>{0ms, 250ms, 750ms, 1750ms, 3750ms, 7750ms, 15750ms,
                                                31750ms, 63750ms}));
    EXPECT_EQ(mapping->phase(), Phase::Probing);
    run(1s);
    EXPECT_EQ(mapping->phase(), Phase::Over);
    EXPECT_EQ(mapping->failure(), NatFailure::Silent);
}

TEST_F(PortControlMappingTest, MapsBothTransportsRenewsAtHalfLifeAndWithdraws) {
    open();
    map();
    EXPECT_EQ(mapRequests(), BothMapped);
    EXPECT_EQ(mapping->grant(), (PortGrant{External, 23456, true, true, 3600s}));
    run(1799s);
    EXPECT_TRUE(network.sent.empty());
    address = External + 1;
    run(2s);
    EXPECT_EQ(network.sent.size(), 3u) << "asks for the address, too";
    EXPECT_EQ(mapRequests(), BothMapped);
    EXPECT_EQ(mapping->grant().externalAddress, External + 1);

    // An unanswered withdrawal is sent twice and over after one second.
    silent = true;
    mapping->release();
    EXPECT_EQ(mapRequests(), (std::vector<Bytes>{mapRequest(NatPmpOpcode::MapTcp, 0, 0),
                                                 mapRequest(NatPmpOpcode::MapUdp, 0, 0)}));
    run(999ms);
    EXPECT_EQ(mapRequests().size(), 2u);
    EXPECT_EQ(mapping->phase(), Phase::Releasing);
    run(1ms);
    EXPECT_EQ(mapping->phase(), Phase::Over);
    EXPECT_FALSE(mapping->withdrawn());
}

TEST_F(PortControlMappingTest, SecondTransportFollowsTheFirstOrIsLeftOut) {
    tcpPort = 30000;
    open();
    map(100ms);
    EXPECT_EQ(mapping->grant(), (PortGrant{External, 30000, true, true, 3600s}));
    EXPECT_EQ(mapRequests().back(), mapRequest(NatPmpOpcode::MapUdp, 30000, 3600));

    // A router that cannot give UDP the same port is asked once more, and then left alone.
    udpPort = 40000;
    open();
    map(300ms);
    EXPECT_EQ(mapping->grant(), (PortGrant{External, 30000, true, false, 3600s}));
    EXPECT_EQ(mapRequests().back(), mapRequest(NatPmpOpcode::MapUdp, 0, 0));
    run(60s);
    EXPECT_TRUE(network.sent.empty());

    udpResult = NatPmpOutOfResources;
    open();
    map();
    EXPECT_EQ(mapping->grant(), (PortGrant{External, 30000, true, false, 3600s}));
}

TEST_F(PortControlMappingTest, RouterThatForgotIsAskedAtOnceForTheSamePort) {
    open();
    map();
    mapRequests();
    run(600s);
    EXPECT_TRUE(network.sent.empty());
    // Its announcement to all hosts, with an epoch that has begun again.
    epoch = 3 - static_cast<std::uint32_t>(network.elapsed() / 1s);
    mapping->announced(encode(NatPmpResponse{NatPmpOpcode::ExternalAddress, 0, 3, External}));
    run(10ms);
    EXPECT_EQ(mapRequests(), BothMapped);
    run(60s);
    EXPECT_TRUE(network.sent.empty()) << "an epoch that goes on is no news";

    // A lease that cannot be renewed ends.
    silent = true;
    run(3538s);
    EXPECT_EQ(mapping->phase(), Phase::Mapped);
    EXPECT_GT(network.sent.size(), 18u);
    run(4s);
    EXPECT_EQ(mapping->phase(), Phase::Over);
    EXPECT_EQ(mapping->failure(), NatFailure::Silent);
}

TEST_F(PortControlMappingTest, LineThatIsDownCostsNoMappingAndRefusedRenewalIsWithdrawn) {
    open();
    map();
    tcpResult = udpResult = NatPmpNetworkFailure;
    run(2000s);
    EXPECT_EQ(mapping->phase(), Phase::Mapped);
    tcpResult = udpResult = NatPmpSuccess;
    run(2000s);
    EXPECT_EQ(mapping->phase(), Phase::Mapped) << "renewed soon after";

    mapRequests();
    tcpResult = NatPmpNotAuthorized;
    mapping->check();
    run(10ms);
    EXPECT_EQ(mapRequests().at(2), mapRequest(NatPmpOpcode::MapTcp, 0, 0));
    EXPECT_TRUE(mapping->withdrawn());
}

TEST_F(PortControlMappingTest, RouterWhoseEpochLeapsOrThatAnnouncesWithoutEndIsAskedSeldom) {
    epoch = 4000000000;
    epochLeap = 1000;
    open();
    map();
    network.sent.clear();
    for (int second = 0; second < 60; ++second) {
        for (int count = 0; count < 100; ++count) {
            mapping->announced(encode(PcpResponse{}));
        }
        run(1s);
    }
    EXPECT_GT(network.sent.size(), 3u);
    EXPECT_LT(network.sent.size(), 45u);
}

TEST_F(PortControlMappingTest, GrantIsTakenWithinReason) {
    lifetime = 100000;
    open();
    map();
    EXPECT_EQ(mapping->grant().lifetime, 3600s) << "no longer than was asked for";
    lifetime = 6;
    open();
    map();
    network.sent.clear();
    run(60s);
    EXPECT_EQ(mapping->phase(), Phase::Mapped);
    EXPECT_LE(network.sent.size(), 45u) << "three packets every four seconds";

    tcpPort = 0;
    open();
    mapping->ask();
    run(10ms);
    EXPECT_EQ(mapping->phase(), Phase::Over);
    EXPECT_EQ(mapping->failure(), NatFailure::Refused);
}

TEST_F(PortControlMappingTest, ForeignLateAndDamagedPacketsChangeNothing) {
    const NatPmpResponse spoilt{NatPmpOpcode::MapTcp, 0, 1000, 0, 5900, 666, 3600};
    Bytes noSuchOpcode = encode(spoilt);
    noSuchOpcode[1] = 131;
    Bytes noSuchVersion = encode(spoilt);
    noSuchVersion[0] = 1;
    extra = {{},
             {0, 128},
             encode(NatPmpResponse{NatPmpOpcode::MapTcp, 0, 1000, 0, 5901, 666, 3600}),
             encode(NatPmpResponse{NatPmpOpcode::MapTcp, 0, 1000, 0, 5900, 0, 0}),  // withdrawn
             noSuchOpcode,
             noSuchVersion,
             mapRequest(NatPmpOpcode::MapTcp, 666, 3600)};
    open();
    map();
    EXPECT_EQ(mapping->grant().externalPort, 23456);
    EXPECT_EQ(mapping->ignored(), 21);
}

TEST_F(PortControlMappingTest, RefusalsAndUnreachablePortsEndItAtOnce) {
    const auto outcome = [this](const std::function<void()>& act) {
        network.router = [act](const Bytes&) { act(); };
        open();
        EXPECT_EQ(mapping->phase(), Phase::Over);
        return mapping->failure();
    };
    EXPECT_EQ(outcome([this] { network.refuse(); }), NatFailure::Unsupported);
    EXPECT_EQ(outcome([this] {
                  network.answer(encode(NatPmpResponse{NatPmpOpcode::ExternalAddress, 2, 9}));
              }),
              NatFailure::Refused);
    PcpResponse otherVersion;
    otherVersion.result = PcpResult::UnsupportedVersion;
    EXPECT_EQ(outcome([&] { network.answer(encode(otherVersion)); }), NatFailure::Unsupported);
    network.reachable = false;
    EXPECT_EQ(outcome([] {}), NatFailure::Silent);
    EXPECT_TRUE(mapping->withdrawn());
    mapping->recover();
    EXPECT_FALSE(mapping->withdrawn()) << "nobody could be asked";
}

TEST_F(PortControlMappingTest, PcpKeepsItsNonceAndRenewsWithinItsWindow) {
    network.router = [this](const Bytes& request) {
        EXPECT_EQ(read32(request, 20), 0xc0a80114u) << "the client's address";
        const auto asked = *decodePcpRequest(request);
        PcpResponse response{asked.opcode, PcpResult::Success, asked.lifetime,
                             static_cast<std::uint32_t>(network.elapsed() / 1s), asked.map};
        if (asked.opcode == PcpOpcode::Map) {
            EXPECT_EQ(request[24], 0xab) << "the nonce";
            response.map.externalAddress = External;
            response.map.externalPort = 24000;
            ++response.map.nonce[0];
            network.answer(encode(response));
            --response.map.nonce[0];
        }
        network.answer(encode(response));
    };
    open({5900, 23456, true, false}, [](std::uint32_t local) {
        return std::make_unique<PcpWire>(5900, local, PcpNonces{{0xab}, {0xcd}});
    });
    map();
    EXPECT_EQ(mapping->ignored(), 1);
    EXPECT_EQ(mapping->grant(), (PortGrant{External, 24000, true, false, 3600s}));
    mapRequests();
    run(1799s);
    EXPECT_TRUE(network.sent.empty());
    run(452s);
    ASSERT_EQ(network.sent.size(), 1u);
    EXPECT_EQ(read16(mapRequests()[0], 42), 24000) << "asked for again";

    mapping->release();
    EXPECT_EQ(read32(mapRequests().at(0), 4), 0u) << "lifetime";
    run(10ms);
    EXPECT_TRUE(mapping->withdrawn());
}

}  // namespace zelvo::test
