#include "snapshot/SymbolicHotKeys.h"

#include <gtest/gtest.h>

#include "tests/support/FakePlatform.h"

namespace zelvo {
namespace {

using platform::PropertyList;
using Array = PropertyList::Array;
using Dictionary = PropertyList::Dictionary;
using Keys = std::vector<std::int32_t>;

constexpr const char* UserFile = "/home/anna/Library/Preferences/com.apple.symbolichotkeys.plist";
constexpr const char* DefaultFile = "/resources/com.apple.symbolichotkeys.12.4.plist";

PropertyList hotKey(Array parameters) {
    return Dictionary{{"enabled", false},
                      {"value", Dictionary{{"parameters", std::move(parameters)}}}};
}

struct SymbolicHotKeysTest : testing::Test {
    test::FakePlatform host;

    void file(const std::string& path, Dictionary hotKeys) {
        host.propertyLists.files[path] = Dictionary{{"AppleSymbolicHotKeys", std::move(hotKeys)}};
    }
    SymbolicHotKeys read(std::optional<std::string> bundle = std::nullopt) {
        return readSymbolicHotKeys(host.propertyLists, host.bundle, host.processInfo, bundle);
    }
};

TEST_F(SymbolicHotKeysTest, OneHotKey) {
    auto keys = [](PropertyList value) { return keysFromSymbolicHotKey(&value); };
    EXPECT_EQ(keys(hotKey({65535, 126, 262144})), (Keys{65507, 126}));
    EXPECT_EQ(keys(hotKey({32, 49, 1048576})), (Keys{65513, 32}));
    EXPECT_EQ(keys(hotKey({65535, 3, 0x1F0000 | 0xFF})), (Keys{65505, 65507, 65511, 65513, 3}));
    EXPECT_EQ(keys(hotKey({"65535", "126", 1, 131072})), (Keys{65505, 126}));
    EXPECT_EQ(keysFromSymbolicHotKey(nullptr), Keys{});
    EXPECT_EQ(keys(Dictionary{}), Keys{});
    EXPECT_EQ(keys(hotKey({65535, 126})), Keys{0});
    EXPECT_EQ(keys(hotKey({Array{}, 49, Dictionary{}})), Keys{0});
    EXPECT_EQ(keys(Dictionary{{"value", Dictionary{{"parameters", true}}}}), Keys{0});
}

TEST_F(SymbolicHotKeysTest, UnusableOnesFallBackToTheDefaults) {
    file(UserFile, {{"32", hotKey({65535, 126, 262144})},
                    {"33", Dictionary{{"enabled", true}}},
                    {"79", hotKey({65535, -1, 0})},
                    {"64", hotKey({0, 0, 0})},
                    {"5", hotKey({1, 1, 1})}});
    EXPECT_EQ(read(), (SymbolicHotKeys{{"32", {65507, 126}}}));
    file(DefaultFile, {{"32", hotKey({65535, 1, 0})},
                       {"33", hotKey({65535, 125, 0})},
                       {"79", hotKey({65535, 0, 0})},
                       {"81", hotKey({65535, 124, 131072})}});
    const SymbolicHotKeys expected{{"32", {65507, 126}}, {"33", {125}}, {"81", {65505, 124}}};
    EXPECT_EQ(read(), expected);
    EXPECT_EQ(read("app.zelvo.Zelvo"), expected);
    EXPECT_EQ(read("org.example.other"), (SymbolicHotKeys{{"32", {65507, 126}}}));
    host.processInfo.version = {{12, 5, 4}};
    EXPECT_EQ(read(), (SymbolicHotKeys{{"32", {65507, 126}}}));
    host.processInfo.version.reset();
    file("/resources/com.apple.symbolichotkeys.0.0.plist", {{"64", hotKey({32, 49, 0})}});
    EXPECT_EQ(read(), (SymbolicHotKeys{{"32", {65507, 126}}, {"64", {32}}}));
}

TEST_F(SymbolicHotKeysTest, DefaultsStandInForNoMissingUserFile) {
    file(DefaultFile, {{"33", hotKey({65535, 125, 0})}});
    EXPECT_TRUE(read().empty());
    host.propertyLists.files[UserFile] = Dictionary{{"AppleSymbolicHotKeys", Array{}}};
    EXPECT_TRUE(read().empty());
    file(UserFile, {});
    EXPECT_EQ(read().size(), 1u);
    host.bundle.library.reset();
    EXPECT_TRUE(read().empty());
}

}  // namespace
}  // namespace zelvo
