#include "platform/linux/nat/NatEngine.h"

#include <arpa/inet.h>

#include <set>

#include "platform/linux/nat/codec/NatPmpCodec.h"
#include "tests/nat/VirtualNetwork.h"
#include "tests/support/RecordingLog.h"
#include "tests/support/TemporaryFolder.h"

namespace zelvo::test {

using namespace platform;

namespace {

constexpr std::uint32_t Gateway = 0xc0a80101;
constexpr std::uint32_t Cable = 0xc0a80114;
constexpr std::uint32_t Wireless = 0xc0a80115;
constexpr std::uint32_t Neighbour = 0xc0a80116;
constexpr std::uint32_t Wide = 0xcb007105;

using Asked = std::vector<std::string>;

struct GivenRoutes : Routes {
    std::optional<RouterRoute> defaultRoute() const override { return route; }
    std::optional<RouterRoute> to(std::uint32_t router) const override {
        return RouterRoute{router, Cable, 0};
    }
    std::optional<RouterRoute> toNeighbour(std::uint32_t) const override { return route; }
    bool isOwnAddress(std::uint32_t address) const override { return own.contains(address); }

    std::optional<RouterRoute> route = RouterRoute{Gateway, Cable, 1};
    std::set<std::uint32_t> own{Cable, Wireless};
};

/// The engine on virtual time, with one router whose table both protocols share.
class NatEngineTest : public testing::Test {
  protected:
    struct Entry {
        std::uint16_t port = 0;
        PcpNonce nonce{};
    };

    NatEngineTest() {
        network.router = [this](const Bytes& request) {
            if (cut.contains(network.asker)) {
                return;
            }
            if (request[0] == 2 && pcp) {
                answerPcp(*decodePcpRequest(request));
            } else if (request[0] == 2 && natPmp) {
                network.answer(encodeNatPmpVersionRefusal(request[1], epoch()));
            } else if (request[0] == 0 && natPmp) {
                answerNatPmp(*decodeNatPmpRequest(request));
            }
        };
        options.conversations.upnp = false;
        options.stateFolder = folder.path();
        start();
    }
    void start() {
        engine.reset();
        engine = std::make_unique<NatEngine>(network, routes, log, options);
    }

    std::uint32_t epoch() const { return static_cast<std::uint32_t>(network.elapsed() / 1s); }

    void answerPcp(const PcpRequest& request) {
        PcpResponse response{request.opcode, PcpResult::Success, request.lifetime, epoch(),
                             request.map};
        response.map.externalAddress = external;
        if (request.opcode == PcpOpcode::Map) {
            response.result = pcpResult;
            const auto entry = table.find(network.asker);
            if (entry != table.end() && entry->second.nonce != request.map.nonce) {
                response.result = PcpResult::NotAuthorized;
            }
            note("pcp", request.lifetime, request.map.externalPort);
            if (request.lifetime == 0 && ignoresWithdrawals) {
                return;
            }
            if (response.result == PcpResult::Success) {
                response.map.externalPort =
                    change(request.lifetime, request.map.externalPort, request.map.nonce);
            }
        }
        network.answerAfter(request.opcode == PcpOpcode::Map ? pcpMapDelay : 1ms, encode(response));
    }

    void answerNatPmp(const NatPmpRequest& request) {
        NatPmpResponse response{request.opcode,  natPmpResult,         epoch(),
                                external,        request.internalPort, request.externalPort,
                                request.lifetime};
        if (request.opcode != NatPmpOpcode::ExternalAddress) {
            note("nat-pmp", request.lifetime, request.externalPort);
            response.externalPort = change(request.lifetime, request.externalPort, {});
        }
        // A little later than PCP, so that the order is certain.
        network.answerAfter(2ms, encode(response));
    }

    void note(const std::string& protocol, std::uint32_t lifetime, std::uint16_t port) {
        asked.push_back(protocol + (lifetime ? " maps " + std::to_string(port) : " withdraws") +
                        (network.asker == Wireless ? " wirelessly" : ""));
    }
    std::uint16_t change(std::uint32_t lifetime, std::uint16_t wish, const PcpNonce& nonce) {
        if (lifetime == 0) {
            table.erase(network.asker);
            return 0;
        }
        if (!table.contains(network.asker)) {
            const auto isTaken = [&wish](const auto& row) { return row.second.port == wish; };
            while (std::any_of(table.begin(), table.end(), isTaken)) {
                ++wish;
            }
            table[network.asker] = {wish, nonce};
        }
        return table[network.asker].port;
    }

    void open(int id = 1) {
        engine->open(id, PortWish{5900, 23456, true, false},
                     [this](const NatPortMappingReply& reply) { replies.push_back(reply); });
    }
    void run(milliseconds duration) {
        network.run(
            duration, [this] { return engine->nextWake(); }, [this] { engine->advance(); });
    }
    void go(std::uint32_t localAddress) {
        routes.route = RouterRoute{Gateway, localAddress, localAddress == Cable ? 1 : 2};
        engine->routesChanged();
    }
    int port() const { return ntohs(replies.back().externalPort); }
    Asked takeAsked() { return std::exchange(asked, {}); }

    VirtualNetwork network;
    GivenRoutes routes;
    RecordingLog log;
    TemporaryFolder folder;
    NatEngine::Options options;
    std::set<std::uint32_t> cut;
    bool ignoresWithdrawals = false;
    bool pcp = true;
    bool natPmp = true;
    PcpResult pcpResult = PcpResult::Success;
    milliseconds pcpMapDelay = 1ms;
    std::uint16_t natPmpResult = NatPmpSuccess;
    std::uint32_t external = Wide;
    std::map<std::uint32_t, Entry> table;
    Asked asked;
    std::vector<NatPortMappingReply> replies;
    std::unique_ptr<NatEngine> engine;
};

}  // namespace

TEST_F(NatEngineTest, FirstToAnswerMapsAndNobodyElseAsks) {
    open();
    run(1s);
    ASSERT_EQ(replies.size(), 1u);
    EXPECT_EQ(ntohl(replies[0].externalAddress), Wide);
    EXPECT_EQ(port(), 23456);
    EXPECT_EQ(replies[0].protocol, NatProtocolTcp);
    EXPECT_EQ(replies[0].ttl, 3600u);
    EXPECT_EQ(takeAsked(), (Asked{"pcp maps 23456"}));

    // The next one waits until the withdrawal is over, which would take the new mapping with it.
    ignoresWithdrawals = true;
    engine->close(1);
    open(2);
    run(900ms);
    EXPECT_EQ(takeAsked(), (Asked{"pcp withdraws", "pcp withdraws"}));
    ignoresWithdrawals = false;
    run(2s);
    EXPECT_EQ(takeAsked(), (Asked{"pcp maps 23456"}));
    engine->close(2);
    open(3);
    run(1s);
    EXPECT_EQ(takeAsked(), (Asked{"pcp withdraws", "pcp maps 23456"}));
    EXPECT_EQ(replies.size(), 3u);
    EXPECT_TRUE(log.has("PCP has withdrawn the mapping of port 5900"));
}

TEST_F(NatEngineTest, RefusedOrUnknownProtocolMakesRoomForTheNext) {
    pcpResult = PcpResult::NotAuthorized;
    open();
    run(1s);
    EXPECT_EQ(takeAsked(), (Asked{"pcp maps 23456", "nat-pmp maps 23456"}));
    pcp = false;
    engine->close(1);
    open(2);
    run(20ms);
    EXPECT_EQ(takeAsked(), (Asked{"nat-pmp withdraws", "nat-pmp maps 23456"}));
    EXPECT_EQ(replies.size(), 2u);
}

TEST_F(NatEngineTest, LateGrantOfALoserIsWithdrawnAndTheMappingStays) {
    pcpMapDelay = 1200ms;
    open();
    run(3s);
    ASSERT_EQ(replies.size(), 1u);
    // The two share the router's table, where the withdrawal has taken the winner's entry, too.
    EXPECT_EQ(asked[0], "pcp maps 23456");
    EXPECT_NE(std::find(asked.begin(), asked.end(), "pcp withdraws"), asked.end());
    EXPECT_EQ(asked.back(), "nat-pmp maps 23456");
}

TEST_F(NatEngineTest, WhatIsMappedWhileTheNetworkChangesIsAskedForAgain) {
    open();
    run(0ms);
    engine->checkAll();
    run(1s);
    EXPECT_EQ(asked, (Asked{"pcp maps 23456", "pcp maps 23456"}));

    table = {{Neighbour, {23456, {}}}};
    engine->checkAll();
    run(2s);
    EXPECT_EQ(port(), 23457) << "somebody else has it";
    table.erase(Neighbour);
    engine->checkAll();
    run(2s);
    EXPECT_EQ(port(), 23456) << "he has gone";
}

TEST_F(NatEngineTest, RouterIsHeardWhenItAnnouncesAndNobodyElseIs) {
    pcp = false;
    natPmpResult = NatPmpNetworkFailure;
    open();
    run(10s);
    ASSERT_EQ(replies.size(), 1u);
    EXPECT_EQ(replies[0].errorCode, NatErrorTransient);
    natPmpResult = NatPmpSuccess;
    network.announce(5350, Gateway + 5, encode(NatPmpResponse{}));
    run(10s);
    EXPECT_EQ(replies.size(), 1u);
    network.announce(5350, Gateway, encode(NatPmpResponse{}));
    run(10ms);
    ASSERT_EQ(replies.size(), 2u);
    EXPECT_EQ(replies[1].errorCode, 0);

    takeAsked();
    const std::string notice =
        "NOTIFY * HTTP/1.1\r\nNTS: ssdp:alive\r\nLocation: http://192.168.1.1/a\r\n\r\n";
    network.announce(1900, Gateway + 5, {notice.begin(), notice.end()});
    run(10s);
    EXPECT_TRUE(asked.empty());
    network.announce(1900, Gateway, {notice.begin(), notice.end()});
    run(2s);
    EXPECT_EQ(asked, (Asked{"nat-pmp maps 23456"}));
}

TEST_F(NatEngineTest, SilenceIsTheOutcomeAfterTenSecondsAndAskedAgainEverMoreSeldom) {
    pcp = natPmp = false;
    open();
    for (const auto pause : {4000ms, 5000ms, 999ms}) {
        run(pause);
        EXPECT_TRUE(replies.empty());
        // A network that comes and goes does not put it off.
        go(pause == 5000ms ? Cable : Wireless);
    }
    run(1ms);
    ASSERT_EQ(replies.size(), 1u);
    EXPECT_EQ(replies[0].errorCode, NatErrorTimeout);
    EXPECT_EQ(replies[0].externalPort, 0);
    EXPECT_EQ(log.lines, (Asked{"Port mapping: PCP: the router does not answer",
                                "Port mapping: NAT-PMP: the router does not answer"}));
    EXPECT_TRUE(asked.empty());

    // Each search lasts ten seconds; between them are 30, 60, 120, 240, and from there on 300.
    run(1810s);
    EXPECT_EQ(replies.size(), 9u);
    natPmp = true;
    run(300s);
    ASSERT_EQ(replies.size(), 10u);
    EXPECT_EQ(replies[9].errorCode, 0);

    // Without a router it is immediate, until one comes.
    engine->close(1);
    routes.route.reset();
    engine->routesChanged();
    open(2);
    run(2s);
    ASSERT_EQ(replies.size(), 11u);
    EXPECT_EQ(replies[10].errorCode, NatErrorNoRouter);
    go(Wireless);
    run(1s);
    ASSERT_EQ(replies.size(), 12u);
    EXPECT_EQ(port(), 23456);
}

TEST_F(NatEngineTest, AddressWhereNobodyCanComeInIsNone) {
    for (const std::uint32_t none :
         {0u, 0x7f000001u, 0xe0000001u, 0xefffffffu, 0xf0000001u, 0xffffffffu}) {
        external = none;
        open();
        run(5s);
        EXPECT_EQ(replies.back().errorCode, NatErrorTransient) << none;
        EXPECT_EQ(replies.back().externalPort, 0);
        EXPECT_TRUE(table.empty()) << "nothing is left for what is of no use";
        engine->close(1);
    }
    // Once mapped, a line that is down is no reason to give up the port.
    external = Wide;
    open(2);
    run(1s);
    external = 0x7f000001;
    engine->checkAll();
    run(1s);
    EXPECT_EQ(replies.back().externalAddress, 0u);
    EXPECT_EQ(port(), 23456);

    options.conversations.router = Ipv4Endpoint{0x7f000001, 4000};
    start();
    open();
    run(1s);
    EXPECT_EQ(ntohl(replies.back().externalAddress), 0x7f000001u);
}

TEST_F(NatEngineTest, PublishedPortIsAskedForFirstAndTheRestIsTakenBackInTheEnd) {
    // What was wished for first is somebody else's.
    table[Neighbour] = {23456, {}};
    for (const bool returns : {true, false}) {
        open();
        run(1s);
        EXPECT_EQ(port(), 23457);
        takeAsked();
        // The router holds the port for the address that cannot be used at the moment.
        cut = {Cable};
        go(Wireless);
        run(3s);
        EXPECT_EQ(takeAsked(), (Asked{"pcp maps 23457 wirelessly"}));
        EXPECT_EQ(port(), 23458);
        cut = {Wireless};
        go(Cable);
        run(3s);
        EXPECT_EQ(takeAsked(), (Asked{"pcp maps 23457"}));
        EXPECT_EQ(port(), 23457) << "the nonce is that of the first time";
        EXPECT_EQ(table.size(), 3u);

        // Whoever may withdraw the other one may be gone.
        cut.clear();
        routes.own = returns ? std::set{Cable, Wireless} : std::set{Cable};
        engine->closeAll();
        run(1100ms);
        EXPECT_TRUE(engine->isIdle());
        EXPECT_EQ(table.size(), returns ? 1u : 2u);
        EXPECT_EQ(std::filesystem::is_empty(folder.path()), returns);
        start();
    }
    // The next start finds it in the journal, and no new mapping is made before it is gone.
    routes.own = {Wireless};
    routes.route = RouterRoute{Gateway, Wireless, 2};
    takeAsked();
    start();
    open();
    run(1s);
    EXPECT_EQ(takeAsked(), (Asked{"pcp withdraws wirelessly", "pcp maps 23456 wirelessly"}));
}

}  // namespace zelvo::test
