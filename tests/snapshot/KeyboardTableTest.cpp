#include "snapshot/KeyboardTable.h"

#include <gtest/gtest.h>

#include "tests/support/FakePlatform.h"

namespace zelvo {
namespace {

using platform::PropertyList;
using Dictionary = PropertyList::Dictionary;

TEST(KeyboardTableTest, TranslatesByTheTableLastRead) {
    test::FakePlatform host;
    KeyboardTable table(host.propertyLists, host.bundle, host.log);
    auto& file = host.propertyLists.files["/resources/KeycodeToKeysym.plist"];
    file = Dictionary{{"up", Dictionary{{"keycode", 126}, {"keysym", 65362}}},
                      {"broken", "126"},
                      {"no code", Dictionary{{"keysym", 97}, {"other", 1}}},
                      {"no sym", Dictionary{{"keycode", 7}}}};
    EXPECT_EQ(table.currentKeyboardLayout(), std::nullopt);
    EXPECT_EQ(table.translateKeyCode(126), 0);
    table.setCurrentKeyboardLayout("us");
    EXPECT_EQ(table.translateKeyCode(126), 65362);
    EXPECT_EQ(table.translateKeyCode(0), 97);
    EXPECT_EQ(table.translateKeyCode(7), 0);
    EXPECT_EQ(host.log.lines.size(), 1u);
    EXPECT_EQ(table.translateKeyCode(200), 0);
    EXPECT_EQ(host.log.lines.back(), "translateKeyCode: Couldn't fine equivalent for keyCode: 200");

    file = Dictionary{{"up", Dictionary{{"keycode", 126}, {"keysym", 1}}}};
    EXPECT_EQ(table.translateKeyCode(126), 65362);
    table.setCurrentKeyboardLayout("us");
    EXPECT_EQ(table.translateKeyCode(126), 1);
    file = "no dictionary";
    table.setCurrentKeyboardLayout(std::nullopt);
    EXPECT_EQ(table.currentKeyboardLayout(), std::nullopt);
    EXPECT_EQ(table.keyCodeToKeySymDictionnary(), std::nullopt);
    EXPECT_EQ(table.translateKeyCode(126), 0);
}

}  // namespace
}  // namespace zelvo
