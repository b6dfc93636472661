#include "snapshot/HostSettingsPayload.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "snapshot/HotCorners.h"
#include "tests/support/FakePlatform.h"

namespace zelvo {
namespace {

using platform::PropertyList;
using Array = PropertyList::Array;
using Dictionary = PropertyList::Dictionary;

struct HostSettingsPayloadTest : testing::Test {
    test::FakePlatform host;
    std::vector<std::int32_t> translated;

    void hotKeys(Dictionary keys) {
        host.propertyLists.files["/home/anna/Library/Preferences/com.apple.symbolichotkeys.plist"] =
            Dictionary{{"AppleSymbolicHotKeys", std::move(keys)}};
    }
    void dock(PropertyList value) {
        host.propertyLists.files["/home/anna/Library/Preferences/com.apple.dock.plist"] =
            std::move(value);
    }
    std::string payload() {
        return hostSettingsPayload(host.propertyLists, host.bundle, host.processInfo,
                                   [this](std::int32_t code) {
                                       translated.push_back(code);
                                       return code == 126 ? 65362 : 0;
                                   });
    }
    std::string corner(PropertyList value) {
        dock(Dictionary{{"wvous-br-corner", std::move(value)}});
        auto text = payload();
        return text.substr(text.find("\"hotCorners\":") + 13);
    }
};

TEST_F(HostSettingsPayloadTest, NothingSet) {
    EXPECT_EQ(payload(), R"({"originalKeys":[],"osVersion":"12.4.0","hotCorners":{}})");
    host.processInfo.version.reset();
    host.bundle.library.reset();
    EXPECT_EQ(payload(), R"({"originalKeys":[],"osVersion":"0.0.0","hotCorners":{}})");
}

TEST_F(HostSettingsPayloadTest, KeysAreTranslatedButForTheSpace) {
    auto hotKey = [](Array parameters) {
        return PropertyList(Dictionary{{"value", Dictionary{{"parameters", parameters}}}});
    };
    hotKeys({{"32", hotKey({65535, 126, 262144})},
             {"33", hotKey({65535, 125, 262144})},
             {"64", hotKey({32, 49, 1048576})},
             {"81", hotKey({51, 20, 0})}});
    EXPECT_EQ(payload(), R"({"32":[65507,65362],"33":[65507,0],"64":[65513,32],"81":[0],)"
                         R"("originalKeys":[126,125,32,51],"osVersion":"12.4.0","hotCorners":{}})");
    EXPECT_EQ(translated, (std::vector<std::int32_t>{126, 125, 51}));
}

TEST_F(HostSettingsPayloadTest, HotCorners) {
    EXPECT_EQ(dockPreferencesPath(host.bundle),
              "/home/anna/Library/Preferences/com.apple.dock.plist");
    dock(Dictionary{{"wvous-tl-corner", 1},
                    {"wvous-tl-modifier", 0x20000 | 0x80000},
                    {"wvous-tr-modifier", 0x20000},
                    {"wvous-bl-corner", 0},
                    {"wvous-bl-modifier", Array{}},
                    {"wvous-br-corner", 5},
                    {"wvous-br-modifier", 1048576},
                    {"orientation", "left"}});
    EXPECT_NE(payload().find(R"("hotCorners":{"wvous-bl-corner":{"value":0,"modifiers":[]},)"
                             R"("wvous-br-corner":{"value":5,"modifiers":[65513]},)"
                             R"("wvous-tl-corner":{"value":1,"modifiers":[65505,65511]}}})"),
              std::string::npos);
}

TEST_F(HostSettingsPayloadTest, ActionsOfEveryKindThatJsonKnowsPassThrough) {
    EXPECT_EQ(corner(Array{true, false, 1.5, 1e300, std::numeric_limits<std::int64_t>::min(),
                           Dictionary{{"a", 1}, {"b", Array{}}}}),
              R"({"wvous-br-corner":{"value":[true,false,1.5,1e+300,-9223372036854775808,)"
              R"({"a":1,"b":[]}],"modifiers":[]}}})");
    EXPECT_EQ(corner(std::string("\"\\/\b\f\n\r\t\0\x1F\x7F \xC3\xA9\xF0\x9F\x98\x80", 18)),
              "{\"wvous-br-corner\":{\"value\":\"\\\"\\\\/\\b\\f\\n\\r\\t\\u0000\\u001f\x7F "
              "\xC3\xA9\xF0\x9F\x98\x80\",\"modifiers\":[]}}}");
    for (const char* bad : {"\x80", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF0\x80\x80\xAF",
                            "\xF4\x90\x80\x80", "\xE2\x82"}) {
        auto text = corner(bad);
        EXPECT_NE(text.find("\xEF\xBF\xBD\",\"modifiers"), std::string::npos) << text;
        EXPECT_EQ(text.find(bad), std::string::npos) << text;
    }
}

TEST_F(HostSettingsPayloadTest, ActionsThatJsonDoesNotKnowLoseTheirCorner) {
    constexpr auto infinite = std::numeric_limits<double>::infinity();
    for (const PropertyList& value :
         {PropertyList(PropertyList::Date{}), PropertyList(infinite),
          PropertyList(std::numeric_limits<double>::quiet_NaN()),
          PropertyList(Array{1, Dictionary{{"a", PropertyList::Data{}}}})})
        EXPECT_EQ(corner(value), "{}}");
}

TEST_F(HostSettingsPayloadTest, SurvivesAnyPreferences) {
    const PropertyList leaves[] = {
        1, true, 1e99, "\xFF]", PropertyList::Date{}, Array{"126"}, Dictionary{}};
    for (const auto& leaf : leaves) {
        dock(leaf);
        hotKeys({{"32", leaf},
                 {"33", Dictionary{{"value", leaf}}},
                 {"81", Dictionary{{"value", Dictionary{{"parameters", leaf}}}}}});
        EXPECT_TRUE(payload().ends_with(R"(],"osVersion":"12.4.0","hotCorners":{}})"));
        dock(Dictionary{{"wvous-tl-corner", 1}, {"wvous-tl-modifier", leaf}});
        hotKeys(
            {{"32", Dictionary{{"value", Dictionary{{"parameters", Array{leaf, leaf, leaf}}}}}}});
        auto text = payload();
        EXPECT_EQ(std::count(text.begin(), text.end(), '{'),
                  std::count(text.begin(), text.end(), '}'))
            << text;
    }
}

}  // namespace
}  // namespace zelvo
