#include <gtest/gtest.h>

#include "host/KVSystemInformation.h"
#include "tests/support/FakePlatform.h"

namespace zelvo {
namespace {

using platform::PropertyList;
using Dictionary = PropertyList::Dictionary;
using Facts = KVSystemInformation;

struct NetworkProbesTest : testing::Test {
    bool listening(const std::string& listing) {
        host.sockets.listing = listing;
        return Facts::isListeningOnPort(host.sockets, host.log, 5900);
    }
    bool established(const std::string& listing) {
        host.sockets.listing = listing;
        return Facts::establishedConnectionOnPort(host.sockets, host.log, 5900);
    }
    /// What sshd is told to listen to.
    void listenTo(const PropertyList& service) {
        host.propertyLists.files["/System/Library/LaunchDaemons/ssh.plist"] = Dictionary{
            {"Sockets", Dictionary{{"Listeners", Dictionary{{"SockServiceName", service}}}}}};
    }
    test::FakePlatform host;
};

TEST_F(NetworkProbesTest, OneNeedsExactlyThePortTheOtherIsLoose) {
    EXPECT_TRUE(listening("tcp4 0 0 *.22 *.* LISTEN\ntcp46 0 0 *.5900 *.* LISTEN\n"));
    EXPECT_EQ(host.sockets.lastFamily, platform::SocketFamily::IPv4);
    EXPECT_FALSE(listening("tcp4 0 0 127.0.0.1.5900 *.* LISTEN\ntcp4 0 0 *.59000 *.* LISTEN\n"));
    EXPECT_TRUE(established("tcp4 0 0 10.0.0.1.15900 10.0.0.2.40000 ESTABLISHED"));
    EXPECT_TRUE(established("tcp6 0 0 fe80::1.1 fe80::2.59001 ESTABLISHED\n"));
    EXPECT_EQ(host.sockets.lastFamily, platform::SocketFamily::Any);
    EXPECT_FALSE(established("tcp4 0 0 10.0.0.1.5900 10.0.0.2.4 TIME_WAIT\nESTABLISHED .5900"));

    host.sockets.failure = "no table";
    EXPECT_FALSE(listening("*.5900 LISTEN"));
    EXPECT_FALSE(established(".5900 ESTABLISHED"));
    EXPECT_EQ(host.log.lines,
              (std::vector<std::string>{"Exception: no table", "Exception: no table"}));
}

TEST_F(NetworkProbesTest, SearchesStayWithinALine) {
    struct Case {
        const char* listing;
        bool listens;
        bool isConnected;
    };
    for (const auto& test :
         {Case{"LISTEN *x5900\t", true, false}, Case{"5900 *.22 *.5900 LISTEN\n", true, false},
          Case{"*.5900\nLISTEN", false, false}, Case{"*.5900 \nLISTEN", false, false},
          Case{"*\n5900 LISTEN", false, false},
          Case{"*.22 LISTEN\n*.5900 x\n*.5900 LISTEN", true, false},
          Case{"*.5900 LISTE\nESTABLISHED", false, false},
          Case{"x\n5900 ESTABLISHED", false, false}, Case{"59005900ESTABLISHED", false, true},
          Case{"x5900\n.5900\tESTABLISHED", false, true},
          Case{"ESTABLISHED .5900\n", false, false}}) {
        EXPECT_EQ(listening(test.listing), test.listens) << test.listing;
        EXPECT_EQ(established(test.listing), test.isConnected) << test.listing;
    }
}

TEST_F(NetworkProbesTest, SshPortTakesOnlyNumbersInRange) {
    EXPECT_EQ(Facts::sshdListeningPort(host.propertyLists, host.services), 22);
    host.services.ports = {{"ssh", 2022}, {"70000", 7}};
    const std::pair<PropertyList, int> cases[] = {
        {"ssh", 2022}, {"2222", 2222}, {65535, 65535}, {70000, 22},
        {"70000", 7},  {-1, 22},       {0, 22},        {PropertyList::Array{}, 22}};
    for (const auto& [name, port] : cases) {
        listenTo(name);
        EXPECT_EQ(Facts::sshdListeningPort(host.propertyLists, host.services), port);
    }
}

TEST_F(NetworkProbesTest, DerivedProbesAskForTheServicesPorts) {
    auto answers = [this] {
        return std::vector<bool>{
            Facts::isRemoteLoginEnabled(host.sockets, host.propertyLists, host.services, host.log),
            Facts::isScreenSharingRunning(host.sockets, host.services, host.log),
            Facts::screenSharingConnectionEstablished(host.sockets, host.services, host.log)};
    };
    host.sockets.listing = "*.5900 LISTEN\n1.5999 ESTABLISHED\n";
    EXPECT_EQ(answers(), (std::vector<bool>{false, true, false}));
    host.services.ports["vnc-server"] = 5999;
    EXPECT_EQ(answers(), (std::vector<bool>{false, false, true}));
    host.services.ports["ssh"] = 5900;
    listenTo("ssh");
    EXPECT_EQ(answers(), (std::vector<bool>{true, false, true}));
}

}  // namespace
}  // namespace zelvo
