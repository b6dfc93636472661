#include "platform/linux/nat/PortPairMapping.h"

#include <arpa/inet.h>

#include "platform/linux/nat/codec/NatPmpCodec.h"
#include "platform/linux/nat/port_control/NatPmpWire.h"
#include "platform/linux/nat/port_control/PcpWire.h"
#include "platform/linux/nat/port_control/PortControlMapping.h"
#include "tests/nat/VirtualNetwork.h"
#include "tests/support/RecordingLog.h"

namespace zelvo::test {

using namespace platform;

namespace {

constexpr std::uint32_t RouterAddress = 0xcb007105;

/// One router with one table that speaks both protocols.
class PortPairMappingTest : public testing::Test {
  protected:
    PortPairMappingTest() {
        network.router = [this](const Bytes& request) {
            if (request[0] == 2 && pcp) {
                answerPcp(*decodePcpRequest(request));
            } else if (request[0] == 2 && natPmp) {
                network.answer(encodeNatPmpVersionRefusal(request[1], epoch()));
            } else if (request[0] == 0 && natPmp) {
                answerNatPmp(*decodeNatPmpRequest(request));
            }
        };
    }

    std::uint32_t epoch() const { return static_cast<std::uint32_t>(network.elapsed() / 1s); }

    void answerPcp(const PcpRequest& request) {
        PcpResponse response{request.opcode, PcpResult::Success, request.lifetime, epoch(),
                             request.map};
        response.map.externalAddress = RouterAddress;
        if (request.opcode == PcpOpcode::Map) {
            response.result = pcpResult;
            note("pcp", request.lifetime);
        }
        network.answerAfter(request.opcode == PcpOpcode::Map ? pcpMapDelay : 1ms, encode(response));
    }

    void answerNatPmp(const NatPmpRequest& request) {
        NatPmpResponse response{request.opcode,  natPmpResult,         epoch(),
                                RouterAddress,   request.internalPort, request.externalPort,
                                request.lifetime};
        if (request.opcode != NatPmpOpcode::ExternalAddress) {
            note("nat-pmp", request.lifetime);
        }
        // A little later than PCP, so that the order is certain.
        network.answerAfter(2ms, encode(response));
    }

    void note(const std::string& protocol, std::uint32_t lifetime) {
        asked.push_back(protocol + (lifetime ? " maps" : " withdraws"));
    }

    void open() {
        pair = std::make_unique<PortPairMapping>(
            network, log, journal, PortWish{5900, 23456, true, false}, network.now(),
            [this](const PortWish& wish) { return make(wish); },
            [this](const NatPortMappingReply& reply) { replies.push_back(reply); });
    }

    std::vector<std::unique_ptr<RouterMapping>> make(const PortWish& wish) {
        std::vector<std::unique_ptr<RouterMapping>> made;
        if (!router) {
            return made;
        }
        made.push_back(std::make_unique<PortControlMapping>(
            network, Ipv4Endpoint{}, wish, [](std::uint32_t local) {
                return std::make_unique<PcpWire>(5900, local, PcpNonces{});
            }));
        made.push_back(std::make_unique<PortControlMapping>(
            network, Ipv4Endpoint{}, wish,
            [](std::uint32_t) { return std::make_unique<NatPmpWire>(5900); }));
        return made;
    }

    void run(milliseconds duration) {
        network.run(
            duration, [this] { return pair->nextWake(); }, [this] { pair->advance(); });
    }

    VirtualNetwork network;
    RecordingLog log;
    MappingJournal journal{"", log};
    bool router = true;
    bool pcp = true;
    bool natPmp = true;
    PcpResult pcpResult = PcpResult::Success;
    milliseconds pcpMapDelay = 1ms;
    std::uint16_t natPmpResult = NatPmpSuccess;
    std::vector<std::string> asked;
    std::vector<NatPortMappingReply> replies;
    std::unique_ptr<PortPairMapping> pair;
};

}  // namespace

TEST_F(PortPairMappingTest, FirstToAnswerMapsAndNobodyElseAsks) {
    open();
    run(1s);
    ASSERT_EQ(replies.size(), 1u);
    EXPECT_EQ(replies[0].errorCode, 0);
    EXPECT_EQ(ntohl(replies[0].externalAddress), RouterAddress);
    EXPECT_EQ(ntohs(replies[0].externalPort), 23456);
    EXPECT_EQ(replies[0].protocol, NatProtocolTcp);
    EXPECT_EQ(replies[0].ttl, 3600u);
    EXPECT_EQ(asked, (std::vector<std::string>{"pcp maps"}));

    pair->close();
    run(1s);
    EXPECT_TRUE(pair->isClosed());
    EXPECT_EQ(replies.size(), 1u);
    EXPECT_EQ(asked.back(), "pcp withdraws");
    EXPECT_EQ(log.lines.back(), "Port mapping: PCP has withdrawn the mapping of port 5900");
}

TEST_F(PortPairMappingTest, RefusedOrUnknownProtocolMakesRoomForTheNext) {
    pcpResult = PcpResult::NotAuthorized;
    open();
    run(1s);
    EXPECT_EQ(asked, (std::vector<std::string>{"pcp maps", "nat-pmp maps"}));
    pcp = false;
    asked.clear();
    replies.clear();
    open();
    run(5ms);
    EXPECT_EQ(asked, (std::vector<std::string>{"nat-pmp maps"}));
    EXPECT_EQ(replies.size(), 1u);
}

TEST_F(PortPairMappingTest, LateGrantOfALoserIsWithdrawnAndTheMappingStays) {
    pcpMapDelay = 1200ms;
    open();
    run(3s);
    ASSERT_EQ(replies.size(), 1u);
    // The two share the router's table, where the withdrawal has taken the winner's entry, too.
    EXPECT_EQ(asked[0], "pcp maps");
    EXPECT_NE(std::find(asked.begin(), asked.end(), "pcp withdraws"), asked.end());
    EXPECT_EQ(asked.back(), "nat-pmp maps");
}

TEST_F(PortPairMappingTest, WhatIsMappedWhileSomethingIsWithdrawnIsAskedForAgain) {
    open();
    run(0ms);
    pair->check();
    run(1s);
    EXPECT_EQ(asked, (std::vector<std::string>{"pcp maps", "pcp maps"}));
}

TEST_F(PortPairMappingTest, LineThatComesUpIsUsedAtOnceWhenTheRouterTells) {
    pcp = false;
    natPmpResult = NatPmpNetworkFailure;
    open();
    run(10s);
    ASSERT_EQ(replies.size(), 1u);
    EXPECT_EQ(replies[0].errorCode, NatErrorTransient);
    natPmpResult = NatPmpSuccess;
    pair->announced(encode(NatPmpResponse{}));
    run(10ms);
    ASSERT_EQ(replies.size(), 2u);
    EXPECT_EQ(replies[1].errorCode, 0);
}

TEST_F(PortPairMappingTest, SilenceIsTheOutcomeAfterTenSecondsAndAskedAgainLater) {
    pcp = natPmp = false;
    open();
    for (const auto pause : {4000ms, 5000ms, 999ms}) {
        run(pause);
        EXPECT_TRUE(replies.empty());
        // A network that comes and goes does not put it off.
        pair->routerChanged();
    }
    run(1ms);
    ASSERT_EQ(replies.size(), 1u);
    EXPECT_EQ(replies[0].errorCode, NatErrorTimeout);
    EXPECT_EQ(replies[0].externalPort, 0);
    EXPECT_EQ(log.lines,
              (std::vector<std::string>{"Port mapping: PCP: the router does not answer",
                                        "Port mapping: NAT-PMP: the router does not answer"}));
    EXPECT_TRUE(asked.empty());

    natPmp = true;
    run(31s);
    ASSERT_EQ(replies.size(), 2u);
    EXPECT_EQ(replies[1].errorCode, 0);

    // Without a router it is immediate, until one comes.
    router = false;
    open();
    run(0ms);
    ASSERT_EQ(replies.size(), 3u);
    EXPECT_EQ(replies[2].errorCode, NatErrorNoRouter);
    router = true;
    pair->routerChanged();
    run(1s);
    ASSERT_EQ(replies.size(), 4u);
    EXPECT_EQ(ntohs(replies[3].externalPort), 23456);
}

}  // namespace zelvo::test
