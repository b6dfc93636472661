#include "platform/linux/property_lists/FileUserDefaults.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>

#include "platform/linux/property_lists/PlistReader.h"
#include "tests/support/ManualLoop.h"
#include "tests/support/TemporaryFolder.h"

using namespace zelvo::platform;
using zelvo::test::RecordingLog;
using zelvo::test::TemporaryFolder;

namespace {

class FileUserDefaultsTest : public testing::Test {
  protected:
    mode_t modeOf(const std::string& path) {
        struct stat status {};
        return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 0777 : 0;
    }
    PropertyList::Dictionary stored() {
        return PlistReader("")
            .dictionaryWithContentsOfFile(folder / "zelvo/defaults.plist")
            .value_or(PropertyList::Dictionary{});
    }

    TemporaryFolder folder;
    RecordingLog log;
    std::vector<bool> told;
    FileUserDefaults defaults{
        folder / "zelvo", log,
        [this](std::string_view, auto, bool isDone) { told.push_back(isDone); }, "b"};
};

}  // namespace

TEST_F(FileUserDefaultsTest, KeepsStringsInAFileOfTheUser) {
    EXPECT_EQ(defaults.stringForKey("permanentSharedLink"), std::nullopt);
    EXPECT_FALSE(defaults.boolForKey("useNewLinkAtEveryLaunch"));
    defaults.removeObject("permanentSharedLink");
    EXPECT_FALSE(std::filesystem::exists(folder / "zelvo")) << "nothing was stored";

    defaults.setString("permanentSharedLink", "a<b>&\u00e9");
    EXPECT_EQ(defaults.stringForKey("permanentSharedLink"), "a<b>&\u00e9");
    EXPECT_EQ(modeOf(folder / "zelvo"), 0700U);
    EXPECT_EQ(modeOf(folder / "zelvo/defaults.plist"), 0600U);

    defaults.removeObject("permanentSharedLink");
    EXPECT_EQ(defaults.stringForKey("permanentSharedLink"), std::nullopt);
    auto files = std::filesystem::directory_iterator(folder / "zelvo");
    EXPECT_EQ(std::distance(begin(files), end(files)), 1) << "no temporary file is left";
    EXPECT_TRUE(log.lines.empty());
}

TEST_F(FileUserDefaultsTest, KeepsEveryStringAsItIs) {
    using namespace std::string_literals;
    for (const auto& text :
         {"\r\n \t"s, "\x1B[31m\x7F\0"s, "\uFFFE\uFFFF"s, "\xED\xA0\x80"s, "not UTF-8: \xC3("s, ""s,
          std::string(1'000'000, '"'), std::string(600'000, '\x1B')}) {
        defaults.setString("a", text);
        EXPECT_TRUE(defaults.stringForKey("a") == text) << text.substr(0, 20);
        defaults.setString("b", "x");
        EXPECT_TRUE(defaults.stringForKey("a") == text) << text.substr(0, 20);
    }
    EXPECT_TRUE(log.lines.empty());
    // Somebody's data is no string.
    folder.write("zelvo/defaults.plist", "{ a = <6869>; }");
    EXPECT_EQ(defaults.stringForKey("a"), std::nullopt);
}

TEST_F(FileUserDefaultsTest, ReadsOthersChangesAndKeepsTheirValues) {
    const std::string others =
        "<key>date</key><date>4001-01-01T00:00:00Z</date>"
        "<key>large</key><integer>18446744073709551615</integer><key>list</key><array><data>aGk="
        "</data><dict/></array>";
    defaults.setString("a", "1");
    folder.write("zelvo/defaults.plist",
                 "<plist><dict>" + others +
                     "<key>flag</key><true/><key>number</key><integer>-3"
                     "</integer><key>real</key><real>0.1</real></dict></plist>");
    EXPECT_EQ(defaults.stringForKey("a"), std::nullopt);
    EXPECT_TRUE(defaults.boolForKey("flag"));
    EXPECT_EQ(defaults.stringForKey("flag"), std::nullopt);
    EXPECT_EQ(defaults.stringForKey("number"), "-3");
    EXPECT_EQ(defaults.stringForKey("real"), "0.1");

    auto before = stored();
    defaults.setString("a", "2");
    before["a"] = "2";
    EXPECT_EQ(stored(), before);

    // The old text form, too.
    folder.write("zelvo/defaults.plist", "{ useNewLinkAtEveryLaunch = YES; }");
    EXPECT_TRUE(defaults.boolForKey("useNewLinkAtEveryLaunch"));
    defaults.setString("a", "3");
    EXPECT_TRUE(defaults.boolForKey("useNewLinkAtEveryLaunch"));
}

TEST_F(FileUserDefaultsTest, SetsDamagedFilesAside) {
    for (const auto& damage : {std::string("<plist><dict><key>a</key>"),
                               std::string("<plist><array/></plist>"), std::string()}) {
        log.lines.clear();
        folder.write("zelvo/defaults.plist", damage);
        EXPECT_EQ(defaults.stringForKey("a"), std::nullopt);
        EXPECT_FALSE(defaults.boolForKey("a"));
        EXPECT_EQ(log.lines.size(), 1U) << damage;
    }
    defaults.setString("a", "new");
    EXPECT_EQ(defaults.stringForKey("a"), "new");
    EXPECT_EQ(folder.read("zelvo/defaults.plist.damaged-1"), "<plist><dict><key>a</key>");
    EXPECT_EQ(folder.read("zelvo/defaults.plist.damaged-2"), "<plist><array/></plist>");
    EXPECT_TRUE(std::filesystem::exists(folder / "zelvo/defaults.plist.damaged-3"));
}

TEST_F(FileUserDefaultsTest, LogsWhatCannotBeStored) {
    defaults.setString("a", "old");
    defaults.setString("\x1B", "new");
    defaults.setString("a", std::string(8 << 20, 'x'));
    EXPECT_EQ(log.lines.size(), 2U);
    EXPECT_EQ(told, (std::vector<bool>{true, false, false}));
    EXPECT_EQ(defaults.stringForKey("a"), "old");

    // As with a disk that is full.
    ::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    ::getrlimit(RLIMIT_FSIZE, &before);
    const rlimit none{100, before.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &none);
    defaults.setString("a", "new");
    ::setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(log.lines.size(), 3U);
    EXPECT_FALSE(told.back());
    EXPECT_EQ(defaults.stringForKey("a"), "old");
    // Nothing can be written, not even over the file: the secret goes, with what it is in.
    defaults.setString("b", std::string(300, 'b'));
    ::setrlimit(RLIMIT_FSIZE, &none);
    defaults.removeObject("a");
    EXPECT_FALSE(told.back());
    EXPECT_EQ(defaults.stringForKey("a"), "old");
    defaults.removeObject("b");
    EXPECT_TRUE(told.back());
    ::setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_FALSE(std::filesystem::exists(folder / "zelvo/defaults.plist"));
    EXPECT_EQ(log.lines.size(), 5U);

    // A folder in the file's place stops also root, whom permissions do not.
    std::filesystem::create_directories(folder / "zelvo/defaults.plist");
    defaults.setString("a", "new");
    EXPECT_EQ(log.lines.size(), 6U);
    EXPECT_EQ(defaults.stringForKey("a"), std::nullopt);

    folder.write("file", "");
    FileUserDefaults nowhere(folder / "file/zelvo", log);
    nowhere.setString("a", "new");
    FileUserDefaults homeless("", log);
    homeless.setString("a", "new");
    EXPECT_EQ(log.lines.size(), 8U);
    EXPECT_EQ(homeless.stringForKey("a"), std::nullopt);
}
