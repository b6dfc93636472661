#include "host/SystemInformation.h"

#include <gtest/gtest.h>

#include "host/SystemInformationDelegate.h"
#include "tests/support/FakePlatform.h"

namespace zelvo {
namespace {

using platform::PropertyList;
using namespace std::string_literals;
using Array = PropertyList::Array;
using Map = PropertyList::Dictionary;
using Lines = std::vector<std::string>;

struct RecordingDelegate : SystemInformationDelegate {
    void computerNameChanged(const std::string& name) override { heard.push_back(name); }
    void computerLocalHostnameChanged(const std::string& name) override { heard.push_back(name); }
    Lines heard;
};

struct SystemInformationTest : testing::Test {
    std::string hex() { return SystemInformation::macAddressHexString(host.hardware, host.log); }
    test::FakePlatform host;
    RecordingDelegate delegate;
};

TEST_F(SystemInformationTest, NamesFallBackStepByStep) {
    auto names = [this] {
        SystemInformation information(host.platform);
        return Lines{information.computerName(), information.localHostname()};
    };
    EXPECT_EQ(names(), (Lines{"Anna's Computer", "annas-computer.local."}));
    host.dynamicStore.opens = false;
    host.dynamicStore.localizedName = "Localized";
    EXPECT_EQ(names(), (Lines{"Localized", "zverrorhostnamenull.local."}));
    host.dynamicStore.opens = true;
    host.dynamicStore.computerName.reset();
    host.dynamicStore.localHostName.reset();
    EXPECT_EQ(names(), (Lines{"Localized", "zverrorhostnamenull.local."}));
    host.dynamicStore.localizedName.reset();
    EXPECT_EQ(names().front(), "Macintosh");
}

TEST_F(SystemInformationTest, PassesOnEveryNoticeComputerNameFirst) {
    SystemInformation silent(host.platform);
    {
        SystemInformation information(host.platform, &delegate);
        host.dynamicStore.computerName = "Desk";
        host.dynamicStore.localHostName = "desk";
        EXPECT_EQ(information.computerName(), "Anna's Computer");
        host.dynamicStore.notify({"key:hosts", "key:computer"});
        EXPECT_EQ(delegate.heard, (Lines{"Desk", "desk.local."}));

        host.dynamicStore.computerName = "Unannounced";
        host.dynamicStore.notify({"key:hosts"});
        EXPECT_EQ(delegate.heard, (Lines{"Desk", "desk.local.", "desk.local."}));
        EXPECT_EQ(information.computerName(), "Desk");
    }
    host.dynamicStore.notify({"key:computer"});
    EXPECT_EQ(silent.computerName(), "Unannounced");
    EXPECT_EQ(delegate.heard.size(), 3u) << "heard after the end";
}

TEST_F(SystemInformationTest, AddressIsThatOfTheLastReachableController) {
    host.hardware.setAddress({0x00, 0x16, 0xCB, 0x8A, 0x3F, 0x21});
    SystemInformation information(host.platform);
    EXPECT_EQ(hex(), "0016cb8a3f21");
    EXPECT_EQ(host.hardware.lastInterface, "en0");
    host.hardware.setAddress({1, 2, 3, 4, 5, 6, 7, 8});
    EXPECT_EQ(hex(), "") << "read at each call";
    EXPECT_EQ(information.macAddress().size(), 6u);

    const std::vector<std::byte> address(6, std::byte{2});
    host.hardware.match.services = {{0, std::nullopt}, {0, address}, {-5, std::nullopt}};
    EXPECT_EQ(hex(), "020202020202");
    host.hardware.match.services.push_back({0, std::nullopt});
    EXPECT_EQ(hex(), "");
    host.hardware.match.status = -7;
    EXPECT_EQ(hex(), "");
    host.hardware.match.matchingDictionary = false;
    EXPECT_EQ(hex(), "");
    EXPECT_EQ(host.log.lines, (Lines{"IORegistryGetParentEntry returned -5\n",
                                     "IORegistryGetParentEntry returned -5\n",
                                     "IOServiceGetMatchingServices() returned -7\n",
                                     "IOBSDNameMatching() returned empty dictionary\n"}));
}

TEST_F(SystemInformationTest, Ports) {
    SystemInformation information(host.platform);
    EXPECT_EQ(information.sshListeningPort(), 22);
    EXPECT_EQ(information.vncListeningPort(), 5900);
    host.services.ports = {{"ssh", 2022}, {"65536", 7}, {"s\xC3\xA9", 8}, {"vnc-server", 5999}};
    EXPECT_EQ(information.vncListeningPort(), 5999);
    const std::pair<PropertyList, int> cases[] = {
        {"ssh", 2022},  {"ssh\0x"s, 2022}, {"unknown", 22}, {"s\xC3\xA9", 22}, {2222, 2222},
        {"2222", 2222}, {70000, 4464},     {-1, 65535},     {65536, 7},        {0, 22},
        {false, 22},    {0.5, 22},         {Map{}, 65535},  {Array{}, 65535}};
    auto& file = host.propertyLists.files["/System/Library/LaunchDaemons/ssh.plist"];
    for (const auto& [name, port] : cases) {
        Map listeners{{"SockServiceName", name}};
        file = Map{{"Sockets", Map{{"Listeners", listeners}}}};
        EXPECT_EQ(information.sshListeningPort(), port);
    }
    file = Map{{"Sockets", Map{{"Listeners", "not a dictionary"}}}};
    EXPECT_EQ(information.sshListeningPort(), 22);
}

}  // namespace
}  // namespace zelvo
