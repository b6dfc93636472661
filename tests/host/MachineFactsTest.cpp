#include <gtest/gtest.h>

#include <cerrno>
#include <limits>

#include "host/KVSystemInformation.h"
#include "tests/support/FakePlatform.h"

namespace zelvo {
namespace {

using Facts = KVSystemInformation;

struct MachineFactsTest : testing::Test {
    test::FakePlatform host;
};

TEST_F(MachineFactsTest, ProcessTableIsReadAgainWhileItGrowsAndIsEmptyWhenUnreadable) {
    host.processes.records = {
        {"screensharingd", 7}, {"a name of more than 16", 8}, {"screensharingd", 5}};
    host.processes.growth = 100;
    EXPECT_EQ(
        Facts::processList(host.processes),
        (Facts::ProcessMap{{"screensharingd", {{"pid", 5}}}, {"a name of more t", {{"pid", 8}}}}));
    EXPECT_EQ(host.processes.sizeAsked, 101);
    host.processes.sizeError = ENOMEM;
    EXPECT_TRUE(Facts::processList(host.processes).empty());
    EXPECT_EQ(host.processes.sizeAsked, 102);
    host.processes.sizeError = 0;
    host.processes.fetchError = EPERM;
    EXPECT_TRUE(Facts::processList(host.processes).empty());
    EXPECT_EQ(host.processes.sizeAsked, 103);

    struct Endless : platform::ProcessTable {
        int size(std::size_t& records) const override {
            records = std::numeric_limits<std::size_t>::max();
            return 0;
        }
        int fetch(std::size_t, std::vector<platform::ProcessRecord>&) const override { return 0; }
    };
    EXPECT_TRUE(Facts::processList(Endless()).empty());
}

TEST_F(MachineFactsTest, SerialNumber) {
    using namespace std::literals;
    const std::vector<std::pair<std::string, std::string>> cases{
        {"XY9\0\0\0\0\0C02ABC123"s, "C02ABC123XY9"},
        {"XY9\0C02\0\0more"s, "C02XY9"},
        {"ABC\0\0"s, "ABC"},
        {"\0\0ABC"s, "ABC"},
        {"", ""},
        {std::string(80, 'a') + '\0' + std::string(80, 'b'),
         std::string(63, 'b') + std::string(63, 'a')},
    };
    auto& search = host.hardware.deviceTree;
    for (const auto& [property, expected] : cases) {
        auto view = std::as_bytes(std::span(property));
        search = {true, true, {{view.begin(), view.end()}}};
        EXPECT_EQ(Facts::computerSerialNumber(host.hardware), expected);
    }
    EXPECT_EQ(host.hardware.lastProperty, "serial-number");
    search = {true, true, std::nullopt};
    EXPECT_EQ(Facts::computerSerialNumber(host.hardware), "");
    search = {true, false, std::nullopt};
    EXPECT_EQ(Facts::computerSerialNumber(host.hardware), "null");
    search = {false, false, std::nullopt};
    EXPECT_EQ(Facts::computerSerialNumber(host.hardware), "");
}

TEST_F(MachineFactsTest, SmallFacts) {
    auto display = [this] { return Facts::MACAddressDisplayString(host.hardware, host.log); };
    EXPECT_EQ(display(), std::nullopt);
    host.hardware.setAddress({0xA1, 0xB2, 0x03});
    EXPECT_EQ(display(), "a1:b2:03");
    host.hardware.match.matchingDictionary = false;
    EXPECT_EQ(display(), std::nullopt);
    EXPECT_EQ(host.log.errors,
              (std::vector<std::string>{"IOBSDNameMatching() returned empty dictionary\n"}));

    EXPECT_EQ(Facts::md5(host.digest, std::string("\xABz\0never", 8)),
              "AB7A" + std::string(28, '0'));
    EXPECT_FALSE(Facts::isIpAddressValid(host.addresses, std::nullopt));
    EXPECT_FALSE(Facts::isIpAddressValid(host.addresses, ""));
    EXPECT_TRUE(host.addresses.asked.empty());
    EXPECT_TRUE(Facts::isIpAddressValid(host.addresses, "192.168.1.10"));

    // Only the first window of the settings is asked to quit.
    host.workspace.running = {"org.example.editor", "com.apple.systempreferences",
                              "com.apple.systempreferences"};
    Facts::closeSystemPreferences(host.workspace);
    EXPECT_EQ(host.workspace.quit, std::vector<std::size_t>{1});
}

TEST_F(MachineFactsTest, DockIconFollowsThePreferenceNotTheArgument) {
    auto hide = [this](bool argument) {
        Facts::hideDockIcon(host.userDefaults, host.bundle, host.application, host.loop, argument);
    };
    hide(true);
    EXPECT_FALSE(Facts::shoudDockIconBeHidden(host.userDefaults, host.bundle));
    EXPECT_EQ(host.application.policy, platform::ActivationPolicy::Regular);
    EXPECT_EQ(host.application.dockTileDrawn, 1);
    host.loop.settle();
    EXPECT_EQ(host.application.activations, 0);

    host.userDefaults.values["app.zelvo.Zelvo.hideDockIcon"] = true;
    hide(false);
    EXPECT_EQ(host.application.policy, platform::ActivationPolicy::Accessory);
    EXPECT_EQ(host.application.activations, 0);
    host.loop.turn();
    EXPECT_EQ(host.application.activations, 1);
    EXPECT_EQ(host.application.dockTileDrawn, 1);
}

}  // namespace
}  // namespace zelvo
