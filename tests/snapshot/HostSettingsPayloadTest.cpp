#include "snapshot/HostSettingsPayload.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>

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
    for (const PropertyList& value :
         {PropertyList(PropertyList::Date{}), PropertyList(PropertyList::Data{}),
          PropertyList(std::numeric_limits<double>::infinity()),
          PropertyList(std::numeric_limits<double>::quiet_NaN()),
          PropertyList(Array{1, Dictionary{{"a", PropertyList::Data{}}}})})
        EXPECT_EQ(corner(value), "{}}");
}

TEST_F(HostSettingsPayloadTest, SurvivesAnyPreferences) {
    std::mt19937 random(34);
    const std::vector<PropertyList> leaves{
        1, -1, 65535, true, 1e99, "126", "\xFF]", PropertyList::Data{}, PropertyList::Date{}};
    std::function<PropertyList(int)> any = [&](int depth) -> PropertyList {
        auto kind = random() % 4;
        if (depth == 0 || kind == 0)
            return leaves[random() % leaves.size()];
        Array elements;
        Dictionary members;
        for (const char* key : {"value", "parameters", "wvous-tl-corner", "wvous-tl-modifier"})
            if (random() % 4 != 0) {
                elements.push_back(any(depth - 1));
                members.emplace(key, any(depth - 1));
            }
        return kind == 1 ? PropertyList(elements) : PropertyList(members);
    };
    for (int round = 0; round < 500; ++round) {
        hotKeys({{"32", any(4)}, {"33", any(4)}, {"81", any(4)}});
        dock(any(3));
        auto text = payload();
        for (const char* member :
             {"\"originalKeys\":[", "],\"osVersion\":\"12.4.0\",\"hotCorners\":{"})
            ASSERT_NE(text.find(member), std::string::npos) << text;
        ASSERT_EQ(text.find(",,"), std::string::npos) << text;
        ASSERT_EQ(std::count(text.begin(), text.end(), '{'),
                  std::count(text.begin(), text.end(), '}'));
    }
}

}  // namespace
}  // namespace zelvo
