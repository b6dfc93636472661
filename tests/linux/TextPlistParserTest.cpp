#include "platform/linux/property_lists/PlistParsing.h"

#include <gtest/gtest.h>

#include "tests/support/Mutations.h"
#include "tests/support/TemporaryFolder.h"

using namespace zelvo::platform;
using zelvo::test::bytes;

namespace {

using Dictionary = PropertyList::Dictionary;
using Array = PropertyList::Array;

PropertyList parsedText(std::string_view text) {
    auto result = parsePlist(bytes(text));
    EXPECT_TRUE(result.value) << text << ": " << result.error;
    return result.value.value_or(PropertyList("(none)"));
}

std::string refused(std::string_view text) {
    auto result = parsePlist(bytes(text));
    EXPECT_FALSE(result.value) << text;
    EXPECT_NE(result.error, "") << text;
    return result.error;
}

const std::string textSample = R"(// a comment
{ name = "Zelvo \"x\""; /* another */ 'other key' = (a, "b c", (), {},);
  data = <0fbd77 1c>; path = /usr/bin-1.2; })";

}  // namespace

TEST(TextPlistParser, ReadsEveryKindOfValue) {
    PropertyList::Data data{std::byte{0x0F}, std::byte{0xBD}, std::byte{0x77}, std::byte{0x1C}};
    EXPECT_EQ(parsedText(textSample), PropertyList(Dictionary{
                                          {"name", "Zelvo \"x\""},
                                          {"other key", Array{"a", "b c", Array{}, Dictionary{}}},
                                          {"data", data},
                                          {"path", "/usr/bin-1.2"},
                                      }));
    EXPECT_EQ(parsedText(" hello\n"), PropertyList("hello"));
    EXPECT_EQ(parsedText("<>"), PropertyList(PropertyList::Data{}));
}

TEST(TextPlistParser, ReadsStringTables) {
    EXPECT_EQ(parsedText("/* Title */\n\"a b\" = \"c\";\nsame;\n\"a b\" = \"last\";\n"),
              PropertyList(Dictionary{{"a b", "last"}, {"same", "same"}}));
    // UTF-16 with its mark, in both orders, and UTF-8 with one.
    using namespace std::string_view_literals;
    PropertyList table(Dictionary{{"k", "\u00e9"}});
    EXPECT_EQ(parsedText("\xFF\xFEk\0=\0\"\0\xE9\0\"\0;\0"sv), table);
    EXPECT_EQ(parsedText("\xFE\xFF\0k\0=\0\"\0\xE9\0\"\0;"sv), table);
    EXPECT_EQ(parsedText("\xEF\xBB\xBFk=\"\u00e9\";"), table);
}

TEST(TextPlistParser, ReadsEscapes) {
    EXPECT_EQ(parsedText(R"("\n\t\\\"\'\101\12x\q")"), PropertyList("\n\t\\\"'A\nxq"));
    // Octal escapes are bytes of the NeXTSTEP character set.
    EXPECT_EQ(parsedText(R"("\341\320")"), PropertyList("\u00c6\u2014"));
    EXPECT_EQ(parsedText(R"("\U00e9\U20AC\Ud83d\Ude00")"), PropertyList("\u00e9\u20ac\U0001F600"));
    EXPECT_EQ(parsedText(R"("\Ud83dx\Ude00")"), PropertyList("\uFFFDx\uFFFD"));
}

TEST(TextPlistParser, RefusesWhatIsNoPropertyList) {
    for (const auto* unfinished :
         {"", " \n// nothing\n", "{a=1}", "{a=1;", "(a", "\"open", "a=", "\"\\", "/* open"})
        refused(unfinished);
    for (const auto* wrong : {"502 Bad Gateway", "(a b)", "<0f0>", "<0g>", "{a=1;} b"})
        refused(wrong);
    for (const auto* foreign :
         {"{\"a\": 1}", "[1]", "}", "\xC3(", "\xFF\xFE\x41", "<html>x</html>"})
        refused(foreign);
    EXPECT_EQ(refused("{\n\na = 1\n}"), "text form: ; expected in line 4");

    auto nested = [](int depth) {
        const auto size = static_cast<std::size_t>(depth);
        return std::string(size, '(') + std::string(size, ')');
    };
    parsedText(nested(64));
    refused(nested(65));
    refused(std::string(500'000, '{'));
    parsedText(std::string(1 << 20, 'a'));
    refused(std::string((1 << 20) + 1, 'a'));
}

TEST(TextPlistParser, SurvivesCutAndChangedText) {
    zelvo::test::mutate(textSample, 5000, [](const std::string& text) {
        auto result = parsePlist(bytes(text));
        EXPECT_NE(result.value.has_value(), !result.error.empty()) << text;
    });
}
