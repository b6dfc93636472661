#include "platform/linux/nat/upnp/UpnpMapping.h"

#include "tests/nat/VirtualNetwork.h"

namespace zelvo::test {

using namespace platform;
using Phase = RouterMapping::Phase;

namespace {

constexpr std::uint32_t Router = 0xc0a80101;
constexpr std::uint32_t Host = 0xc0a80114;

std::string between(const std::string& text, const std::string& name) {
    const std::size_t begin = text.find("<" + name + ">");
    const std::size_t end = text.find("</" + name + ">");
    return begin == std::string::npos
               ? ""
               : text.substr(begin + name.size() + 2, end - begin - name.size() - 2);
}

/// A gateway that keeps a table, with faults to choose from.
class UpnpMappingTest : public testing::Test {
  protected:
    UpnpMappingTest() {
        network.searched = [this](const Ipv4Endpoint& to, const std::string& text) {
            searches.push_back(endpointText(to));
            if (text.find("InternetGatewayDevice:1") != std::string::npos) {
                for (const std::string& location : locations) {
                    network.discover(searchDelay, {answeredBy, 1900},
                                     "HTTP/1.1 200 OK\r\nLOCATION: " + location + "\r\n\r\n");
                }
            }
        };
        network.web = [this](const Ipv4Endpoint& server, const std::string& request) {
            EXPECT_EQ(server.address, Router) << "traffic to somebody else";
            if (down) {
                network.respond(std::nullopt);
            } else if (request.rfind("GET ", 0) == 0) {
                ++fetches;
                network.respond(HttpResponse{200, description});
            } else {
                answerOrder(request);
            }
        };
    }

    void answerOrder(const std::string& request) {
        const std::size_t hash = request.find('#');
        const std::string action = request.substr(hash + 1, request.find('"', hash) - hash - 1);
        const std::string port = between(request, "NewExternalPort");
        const std::string entry = between(request, "NewProtocol") + " " + port;
        if (action == "GetExternalIPAddress") {
            network.respond(HttpResponse{
                200, "<r><NewExternalIPAddress>" + address + "</NewExternalIPAddress></r>"});
            return;
        }
        const std::string lease = between(request, "NewLeaseDuration");
        orders.push_back(action + " " + entry + (lease.empty() ? "" : " " + lease));
        int error = table.count(entry) ? 0 : absent;
        std::string values;
        if (action == "AddPortMapping") {
            error = onlyPermanent && lease != "0" ? 725 : addErrors[entry];
            if (error == 0) {
                table[entry] = between(request, "NewInternalClient") + ":" +
                               between(request, "NewInternalPort");
            }
        } else if (action == "DeletePortMapping") {
            table.erase(entry);
        } else if (error == 0) {
            const std::string& internal = table[entry];
            const std::size_t colon = internal.find(':');
            values = "<NewInternalClient>" + internal.substr(0, colon) +
                     "</NewInternalClient><NewInternalPort>" + internal.substr(colon + 1) +
                     "</NewInternalPort>";
        }
        network.respond(error == 0 ? HttpResponse{200, "<r>" + values + "</r>"}
                                   : HttpResponse{500, "<f><errorCode>" + std::to_string(error) +
                                                           "</errorCode></f>"});
    }

    void begin() {
        mapping = std::make_unique<UpnpMapping>(network, GatewayPlace{Router, Host},
                                                PortWish{5900, 23456});
    }
    void run(milliseconds duration) {
        network.run(
            duration, [this] { return mapping->nextWake(); }, [this] { mapping->wake(); });
    }
    void map() {
        begin();
        run(1s);
        ASSERT_EQ(mapping->phase(), Phase::Ready);
        mapping->ask();
        run(100ms);
    }
    static std::string describe(const std::string& type, const std::string& control) {
        return "<root><device><serviceList><service><serviceType>" + type +
               "</serviceType><controlURL>" + control +
               "</controlURL></service></serviceList></device></root>";
    }

    VirtualNetwork network;
    std::unique_ptr<UpnpMapping> mapping;
    std::vector<std::string> locations{"http://192.168.1.1:5000/rootDesc.xml"};
    std::uint32_t answeredBy = Router;
    milliseconds searchDelay = 2ms;
    std::string description =
        describe("urn:schemas-upnp-org:service:WANIPConnection:1", "/ctl/IPConn");
    bool down = false;
    bool onlyPermanent = false;
    int absent = 714;
    std::string address = "203.0.113.5";
    std::map<std::string, int> addErrors;
    std::map<std::string, std::string> table;
    std::vector<std::string> searches;
    std::vector<std::string> orders;
    int fetches = 0;
};

}  // namespace

TEST_F(UpnpMappingTest, FindsTheGatewayMapsRenewsAndWithdraws) {
    map();
    EXPECT_EQ(searches[0], "192.168.1.1:1900") << "the router itself first";
    EXPECT_EQ(searches[3], "239.255.255.250:1900");
    EXPECT_EQ(mapping->phase(), Phase::Mapped);
    EXPECT_EQ(mapping->grant(), (PortGrant{0xcb007105, 23456, true, true, 3600s}));
    EXPECT_EQ(table["TCP 23456"], "192.168.1.20:5900");
    orders.clear();
    run(1799s);
    EXPECT_TRUE(orders.empty());
    run(2s);
    EXPECT_EQ(orders, (std::vector<std::string>{"AddPortMapping TCP 23456 3600",
                                                "AddPortMapping UDP 23456 3600"}));
    // Some forget their table with their address, and some write it with blanks.
    address = " 203.0.113.6\r\n";
    table.clear();
    run(301s);
    EXPECT_EQ(mapping->grant().externalAddress, 0xcb007106);
    EXPECT_EQ(table.size(), 2u);
    mapping->release();
    run(10ms);
    EXPECT_TRUE(mapping->withdrawn());
    EXPECT_TRUE(table.empty());
    EXPECT_EQ(fetches, 1);
}

TEST_F(UpnpMappingTest, TakesPermanentLeasesAndOtherPortsWhereItMust) {
    onlyPermanent = true;
    map();
    EXPECT_EQ(mapping->grant().lifetime, 0s);
    mapping->release();
    run(10ms);
    EXPECT_TRUE(table.empty());

    onlyPermanent = false;
    addErrors["TCP 23456"] = 718;
    map();
    EXPECT_EQ(mapping->phase(), Phase::Mapped);
    EXPECT_NE(mapping->grant().externalPort, 23456);
    EXPECT_NE(mapping->grant().externalPort, 0);
    EXPECT_EQ(table.size(), 2u) << "UDP on the port of TCP";

    addErrors["TCP 23456"] = 724;
    map();
    EXPECT_EQ(mapping->grant().externalPort, 5900);

    addErrors = {{"UDP 23456", 718}};
    map();
    EXPECT_EQ(mapping->grant(), (PortGrant{0xcb007105, 23456, true, false, 3600s}));

    addErrors = {{"TCP 23456", 606}};
    table.clear();
    map();
    EXPECT_EQ(mapping->phase(), Phase::Over);
    EXPECT_EQ(mapping->failure(), NatFailure::Refused);
    EXPECT_TRUE(mapping->withdrawn()) << "nothing was mapped, so nothing is left";
}

TEST_F(UpnpMappingTest, RefusedRenewalForgetsNothingThatTheGatewayHolds) {
    onlyPermanent = true;
    map();
    addErrors = {{"TCP 23456", 718}, {"UDP 23456", 718}};
    run(1h);
    EXPECT_EQ(mapping->grant(), (PortGrant{0xcb007105, 23456, true, true, 0s})) << "is held still";
    table["TCP 23456"] = "192.168.1.99:22";
    mapping->check();
    run(1s);
    EXPECT_NE(mapping->grant().externalPort, 23456);
    EXPECT_EQ(table.size(), 4u);
    mapping->release();
    run(10ms);
    EXPECT_TRUE(mapping->withdrawn());
    EXPECT_EQ(table, (std::map<std::string, std::string>{{"TCP 23456", "192.168.1.99:22"}}));

    addErrors.clear();
    map();
    addErrors = {{"TCP 23456", 728}};
    mapping->check();
    run(1s);
    EXPECT_TRUE(mapping->withdrawn());
    EXPECT_TRUE(table.empty());
}

TEST_F(UpnpMappingTest, AnswersThatLeadElsewhereAreNotFollowed) {
    const auto refused = [this] {
        begin();
        run(9s);
        EXPECT_EQ(mapping->phase(), Phase::Over);
        EXPECT_TRUE(orders.empty());
    };
    locations = {"http://192.168.1.66:5000/x",
                 "http://evil.example/x",
                 "https://192.168.1.1/x",
                 "http://192.168.1.1@192.168.1.66/",
                 "http://192.168.1.1:0/",
                 "",
                 "\x01"};
    refused();
    EXPECT_EQ(fetches, 0);
    // The same things said by somebody else, and orders that are to go to somebody else.
    locations = {"http://192.168.1.1:5000/rootDesc.xml"};
    answeredBy = Router + 5;
    refused();
    EXPECT_EQ(fetches, 0);
    answeredBy = Router;
    const std::string type = "urn:schemas-upnp-org:service:WANIPConnection:1";
    for (const std::string& hostile :
         {describe(type, "http://192.168.1.66/ctl"), describe(type + "\"><evil/>", "/ctl"),
          std::string(100000, '<')}) {
        description = hostile;
        refused();
    }
    EXPECT_EQ(mapping->failure(), NatFailure::Unsupported);
    fetches = 0;
    locations.clear();
    for (int number = 0; number < 100; ++number) {
        locations.push_back("http://192.168.1.1:5000/" + std::to_string(number));
    }
    refused();
    EXPECT_EQ(fetches, 10);
}

TEST_F(UpnpMappingTest, GatewayThatHangsIsLeftAndLookedForAnewWhenMapped) {
    searchDelay = 2500ms;
    begin();
    run(2600ms);
    EXPECT_EQ(mapping->phase(), Phase::Ready) << "slow answers are waited for";
    run(9s);
    searchDelay = 2ms;
    const auto web = network.web;
    network.web = [](const auto&, const auto&) {};
    begin();
    run(5900ms);
    EXPECT_EQ(mapping->phase(), Phase::Probing);
    run(2s);
    EXPECT_EQ(mapping->phase(), Phase::Over);
    EXPECT_EQ(mapping->failure(), NatFailure::Silent);

    network.web = web;
    map();
    down = true;
    mapping->check();
    run(30s);
    EXPECT_EQ(mapping->phase(), Phase::Mapped);
    down = false;
    table.clear();
    locations = {"http://192.168.1.1:6000/rootDesc.xml"};
    run(60s);
    EXPECT_EQ(table.size(), 2u) << "found at its new port";
    down = true;
    searches.clear();
    run(2h);
    EXPECT_LT(searches.size(), 400u) << "ever more seldom";
    EXPECT_EQ(mapping->phase(), Phase::Over) << "the lease has run out";
}

TEST_F(UpnpMappingTest, WithdrawalFollowsAnOrderThatWasCutOff) {
    for (const bool renewal : {false, true}) {
        network.delay = 1ms;
        begin();
        run(1s);
        mapping->ask();
        run(renewal ? 100ms : 0ms);
        network.delay = 200ms;
        mapping->check();
        run(renewal ? 210ms : 0ms);
        if (!renewal) {
            table.clear();
        }
        mapping->release();
        run(300ms);
        EXPECT_EQ(mapping->phase(), Phase::Releasing) << "no such entry, yet";
        table["TCP 23456"] = "192.168.1.20:5900";
        run(700ms);
        EXPECT_TRUE(mapping->withdrawn());
        EXPECT_TRUE(table.empty());
    }
}

TEST_F(UpnpMappingTest, RecoveryRemovesOurOwnMappingsAndNobodyElses) {
    table = {{"TCP 23456", "192.168.1.20:5900"},
             {"UDP 23456", "192.168.1.20:5900"},
             {"TCP 30000", "192.168.1.99:5900"},
             {"TCP 40000", "192.168.1.20:22"}};
    begin();
    mapping->recover(Host, {23456, 30000, 40000});
    run(2s);
    EXPECT_TRUE(mapping->withdrawn());
    EXPECT_EQ(table.size(), 2u);
    EXPECT_TRUE(table.count("TCP 30000") && table.count("TCP 40000"));
    absent = 606;
    begin();
    mapping->recover(Host, {23456});
    run(2s);
    EXPECT_FALSE(mapping->withdrawn()) << "an answer that tells nothing";
}

}  // namespace zelvo::test
