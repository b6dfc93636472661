#include "platform/linux/property_lists/PlistReader.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QByteArray>

#include "tests/support/Mutations.h"
#include "tests/support/TemporaryFolder.h"

using namespace zelvo::platform;
using namespace zelvo::test;

namespace {

using Dictionary = PropertyList::Dictionary;
using Array = PropertyList::Array;

std::string xml(const std::string& value) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD "
           "PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist "
           "version=\"1.0\">\n" +
           value + "\n</plist>\n";
}

/// A binary property list of objects given as bytes, the first one the root.
std::string binaryOf(const std::vector<std::string>& objects) {
    std::string result = "bplist00";
    std::string offsets;
    auto put = [](std::string& text, std::uint64_t number, int size) {
        for (int shift = (size - 1) * 8; shift >= 0; shift -= 8)
            text += static_cast<char>(number >> shift);
    };
    for (const auto& object : objects) {
        put(offsets, result.size(), 2);
        result += object;
    }
    auto table = result.size();
    result += offsets + std::string(6, '\0');
    put(result, 2, 1);
    put(result, 1, 1);
    put(result, objects.size(), 8);
    put(result, 0, 8);
    put(result, table, 8);
    return result;
}

PropertyListResult parse(const std::string& text) {
    return PlistReader("").parse(bytes(text));
}

PropertyList parsed(const std::string& text) {
    auto result = parse(text);
    EXPECT_TRUE(result.value) << text << "\n" << describe(result.error.value_or(Error{}));
    return result.value.value_or(PropertyList("(none)"));
}

void expectCorrupt(const std::string& text) {
    auto result = parse(text);
    EXPECT_FALSE(result.value) << text.substr(0, 200);
    ASSERT_TRUE(result.error);
    EXPECT_EQ(result.error->domain, CocoaErrorDomain);
    EXPECT_EQ(result.error->code, PropertyListReadCorruptError);
}

const std::string sample = xml(
    "<dict><key>text</key><string>a &amp; &#xE9;<![CDATA[ <b>]]></string>"
    "<key>number</key><integer>-42</integer><key>large</key><integer>18446744073709551615</integer>"
    "<key>real</key><real>2.5</real><key>\u00e9\u20ac</key><true/><key>no</key><false/>"
    "<key>date</key><date>2024-02-29T12:30:45Z</date><key>far</key><date>4001-01-01T00:00:00Z</"
    "date>"
    "<key>data</key><data>aGk=</data><!-- note --><key>list</key><array><dict/><string/></array>"
    "</dict>");

/// The same, written by another program.
const std::string binarySample =
    QByteArray::fromBase64(
        "YnBsaXN0MDDaAQIDBAUGBwgJCgsMDQ4PEhMUFRZUZGF0YVRkYXRlU2ZhclVsYXJnZVRsaXN0Um5vVm51bWJlclRy"
        "ZWFsVHRleHRiAOkgrEJoaTNBxchYOoAAADNCLWPDfwAAABQAAAAAAAAAAP//////////ohAR0FAIE//////////W"
        "I0AEAAAAAAAAaQBhACAAJgAgAOkAIAA8AGIAPgkIHSInKzE2OUBFSk9SW2R1eHl6e4SNoAAAAAAAAAEBAAAAAAAA"
        "ABcAAAAAAAAAAAAAAAAAAACh")
        .toStdString();

const Dictionary sampleValue{
    {"text", "a & \u00e9 <b>"},
    {"number", -42},
    {"large", 18446744073709551615.0},
    {"real", 2.5},
    {"\u00e9\u20ac", true},
    {"no", false},
    {"date", PropertyList::Date{1709209845}},
    {"far", PropertyList::Date{64092211200}},
    {"data", PropertyList::Data{std::byte{'h'}, std::byte{'i'}}},
    {"list", Array{Dictionary{}, ""}},
};

const std::string textSample = R"(// a comment
{ name = "Zelvo \"x\""; /* another */ 'other key' = (a, "b c", (), {},);
  data = <0fbd77 1c>; path = /usr/bin-1.2; })";

std::string nestedXml(int depth) {
    std::string opened;
    std::string closed;
    for (int level = 0; level < depth; ++level) {
        opened += "<array>";
        closed += "</array>";
    }
    return xml(opened + closed);
}

}  // namespace

TEST(PlistReader, ReadsAllThreeForms) {
    EXPECT_EQ(parsed(sample), PropertyList(sampleValue));
    EXPECT_EQ(parsed(binarySample), PropertyList(sampleValue));
    EXPECT_EQ(parsed("{ StatusCode = 0; }"), PropertyList(Dictionary{{"StatusCode", "0"}}));
    EXPECT_EQ(parsed("\xEF\xBB\xBF<plist><string>x</string></plist>"), PropertyList("x"));
    EXPECT_EQ(parsed("<!-- <a --><dict><key>a</key><true/></dict>"),
              PropertyList(Dictionary{{"a", true}}));
}

TEST(PlistReader, ReadsNumbersInEveryNotation) {
    const std::pair<const char*, PropertyList> integers[] = {
        {"08", 8},
        {"-010", -10},
        {" +0x1F\n", 31},
        {"-0x10", -16},
        {"9223372036854775807", std::numeric_limits<std::int64_t>::max()},
        {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()},
        {"9223372036854775808", 9223372036854775808.0}};
    for (const auto& [text, value] : integers)
        EXPECT_EQ(parsed(xml("<integer>" + std::string(text) + "</integer>")), value) << text;
    for (const auto& [text, value] : {std::pair("+1e3", 1000.0), {"-.5", -0.5}, {"007", 7.0}})
        EXPECT_EQ(parsed(xml("<real>" + std::string(text) + "</real>")), PropertyList(value));
}

TEST(PlistReader, RefusesWhatIsNoPropertyList) {
    for (const auto* text :
         {"", "<html><body><h1>502</h1></body></html>", "<plist/>", "<plist></plist>",
          "<plist><string>a</string>",
          "<!DOCTYPE plist [ <!ENTITY a \"b\"> ]><plist><string>&a;</string></plist>"})
        expectCorrupt(text);
    const std::pair<std::string, std::vector<const char*>> wrongInside[] = {
        {"dict", {"<string>a</string>", "<key>a</key>", "<key>a</key><key>b</key><true/>"}},
        {"integer",
         {"abc", "", "18446744073709551616", "-9223372036854775809", "--1", "+-1", "0x", "8.0",
          "1 2"}},
        {"real", {"one", "", "+-1", "1e999"}},
        {"date", {"2024-13-01T00:00:00Z", "2023-02-29T00:00:00Z", "soon"}},
        {"data", {"a!", "abcde"}},
        {"true", {"1"}},
        {"string", {"&foo;", "&#0;", "a<b/>", "\xC3(", "\x1B"}},
        {"array", {"text", "</dict>"}},
        {"key", {"a"}}};
    for (const auto& [element, contents] : wrongInside)
        for (const auto* content : contents)
            expectCorrupt(xml('<' + element + '>' + content + "</" + element + '>'));
    expectCorrupt(xml("<string>a</string><string>b</string>"));
    expectCorrupt(xml("<string a=\"<\">x</string>"));
    expectCorrupt(xml("<true/>") + "junk");

    // Each attribute of a tag is compared with every other.
    std::string attributes;
    for (int number = 0; number < 100'000; ++number)
        attributes += " a" + std::to_string(number) + "=''";
    expectCorrupt("<plist a='>'" + attributes + "><true/></plist>");

    parsed(nestedXml(64));
    expectCorrupt(nestedXml(65));
    expectCorrupt(nestedXml(50'000));
    auto filled = [](std::size_t size) {
        auto text = xml("<string></string>");
        return text.insert(text.find("</string>"), std::string(size - text.size(), 'a'));
    };
    parsed(filled(1 << 20));
    expectCorrupt(filled((1 << 20) + 1));
}

TEST(PlistReader, ReadsText) {
    PropertyList::Data data{std::byte{0x0F}, std::byte{0xBD}, std::byte{0x77}, std::byte{0x1C}};
    EXPECT_EQ(parsed(textSample), PropertyList(Dictionary{
                                      {"name", "Zelvo \"x\""},
                                      {"other key", Array{"a", "b c", Array{}, Dictionary{}}},
                                      {"data", data},
                                      {"path", "/usr/bin-1.2"},
                                  }));
    EXPECT_EQ(parsed(" hello\n"), PropertyList("hello"));
    EXPECT_EQ(parsed("<>"), PropertyList(PropertyList::Data{}));
    EXPECT_EQ(parsed("/* Title */\n\"a b\" = \"c\";\nsame;\n\"a b\" = \"last\";\n"),
              PropertyList(Dictionary{{"a b", "last"}, {"same", "same"}}));
    // UTF-16 with its mark, in both orders, and UTF-8 with one.
    using namespace std::string_literals;
    for (const auto& marked : {"\xFF\xFEk\0=\0\"\0\xE9\0\"\0;\0"s,
                               "\xFE\xFF\0k\0=\0\"\0\xE9\0\"\0;"s, "\xEF\xBB\xBFk=\"\u00e9\";"s})
        EXPECT_EQ(parsed(marked), PropertyList(Dictionary{{"k", "\u00e9"}}));
    // Octal escapes are bytes of the NeXTSTEP character set.
    for (const auto& [escaped, text] : {std::pair(R"("\n\t\\\"\'\101\12x\q")", "\n\t\\\"'A\nxq"),
                                        {R"("\341\320")", "\u00c6\u2014"},
                                        {R"("\U00e9\U20AC\Ud83d\Ude00")", "\u00e9\u20ac\U0001F600"},
                                        {R"("\Ud83dx\Ude00")", "\uFFFDx\uFFFD"}})
        EXPECT_EQ(parsed(escaped), PropertyList(text));
}

TEST(PlistReader, RefusesWhatIsNoText) {
    for (const auto* text : {" \n// nothing\n", "{a=1}", "{a=1;", "(a", "\"open", "a=", "\"\\",
                             "/* open", "502 Bad Gateway", "(a b)", "<0f0>", "<0g>", "{a=1;} b",
                             "{\"a\": 1}", "[1]", "}", "\xC3(", "\xFF\xFE\x41", "<html>x</html>"})
        expectCorrupt(text);
    EXPECT_NE(describe(*parse("{\n\na = 1\n}").error).find("text form: ; expected in line 4"),
              std::string::npos);
    auto nested = [](std::size_t depth) {
        return std::string(depth, '(') + std::string(depth, ')');
    };
    parsed(nested(64));
    expectCorrupt(nested(65));
    expectCorrupt(std::string(500'000, '{'));
    parsed(std::string(1 << 20, 'a'));
    expectCorrupt(std::string((1 << 20) + 1, 'a'));
}

TEST(PlistReader, RefusesHostileBinaries) {
    using namespace std::string_literals;
    EXPECT_EQ(parsed(binaryOf({"\xA2\x01\x01"s, "\x51x"s})), PropertyList(Array{"x", "x"}));
    EXPECT_EQ(parsed(binaryOf({"\x80\x07"s})), PropertyList(Dictionary{{"CF$UID", 7}}));

    expectCorrupt(binaryOf({"\xA1\x00"s}));               // holds itself
    expectCorrupt(binaryOf({"\xA1\x01"s, "\xA1\x00"s}));  // each holds the other
    expectCorrupt(binaryOf({"\xA1\x09"s}));               // a reference beyond the table
    expectCorrupt(binaryOf({"\x5F\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s}));  // a huge count
    expectCorrupt(binaryOf({"\xD1\x01\x02"s, "\x10\x01"s, "\x51x"s}));       // a number as key
    expectCorrupt(binaryOf({"\x33\x7F\xEF\xFF\xFF\xFF\xFF\xFF\xFF"s}));      // a date without year
    expectCorrupt(binaryOf({"\x51\xFF"s}));  // a string that is not UTF-8

    expectCorrupt(binaryOf({"\x61\xD8\x3D"s}));  // half a character in UTF-16

    // Nothing that a string of XML could not hold is lost.
    EXPECT_EQ(parsed(binaryOf({"\xD1\x01\x02"s, "\x52x\0"s, "\x62\xFF\xFE\0\x1B"s})),
              PropertyList(Dictionary{{"x\0"s, "\uFFFE\x1B"}}));
    std::vector<std::string> chain;
    for (char level = 1; level <= 64; ++level)
        chain.push_back("\xA1"s + level);
    auto deepest = chain;
    deepest.push_back("\x09");
    parsed(binaryOf(deepest));
    chain.insert(chain.end(), {"\xA1\x41"s, "\x09"s});
    expectCorrupt(binaryOf(chain));

    // Each level holds the next one many times: few bytes that stand for 15^20 values.
    std::vector<std::string> levels;
    for (char level = 1; level <= 20; ++level)
        levels.push_back("\xAE"s + std::string(14, level));
    levels.push_back("\x51x");
    expectCorrupt(binaryOf(levels));
    // A long string that is named often.
    std::string often = "\xAF\x11\x0F\xFF"s + std::string(0x0FFF, '\x01');
    expectCorrupt(binaryOf({often, "\x5F\x11\x40\x00"s + std::string(0x4000, 'x')}));
}

TEST(PlistReader, SurvivesCutAndChangedBytes) {
    auto call = [](const std::string& text) {
        auto result = parse(text);
        EXPECT_NE(result.value.has_value(), result.error.has_value());
    };
    mutate(sample, 3000, call);
    mutate(binarySample, 10000, call);
    mutate(textSample, 5000, call);
}

TEST(PlistReader, ReadsFilesBelowTheSystemRoot) {
    TemporaryFolder root;
    PlistReader reader(root.path());
    const std::string path = "/Library/Preferences/a.plist";
    EXPECT_FALSE(reader.fileExists(path));
    EXPECT_FALSE(reader.dictionaryWithContentsOfFile(path));

    auto file = root.write("Library/Preferences/a.plist", xml("<dict><key>a</key><true/></dict>"));
    EXPECT_TRUE(reader.fileExists(path));
    EXPECT_EQ(reader.dictionaryWithContentsOfFile(path), Dictionary({{"a", true}}));
    EXPECT_EQ(reader.dictionaryWithContentsOfFile(file), Dictionary({{"a", true}}));
    EXPECT_FALSE(reader.fileExists("/System/Library/a.plist"));

    // No dictionary at the root, no file that could be read to its end.
    root.write("Library/list.plist", xml("<array/>"));
    EXPECT_FALSE(reader.dictionaryWithContentsOfFile("/Library/list.plist"));
    ASSERT_EQ(mkfifo((root / "Library/fifo.plist").c_str(), 0600), 0);
    EXPECT_FALSE(reader.dictionaryWithContentsOfFile("/Library/fifo.plist"));
    EXPECT_FALSE(reader.dictionaryWithContentsOfFile("/Library"));

    // Every change is seen, also of what is kept.
    PlistReader keen(root.path(), std::chrono::nanoseconds(-1));
    for (int number : {7, 42, 123}) {
        root.write("Library/n.plist", xml("<dict><key>n</key><integer>" + std::to_string(number) +
                                          "</integer></dict>"));
        for (int reading = 0; reading < 2; ++reading)
            EXPECT_EQ(keen.dictionaryWithContentsOfFile("/Library/n.plist"),
                      Dictionary({{"n", number}}));
    }
    std::filesystem::remove(root / "Library/n.plist");
    EXPECT_FALSE(keen.dictionaryWithContentsOfFile("/Library/n.plist"));
}
