#include <gtest/gtest.h>

#include "platform/linux/bundle/InstalledBundle.h"
#include "platform/linux/property_lists/PlistReader.h"
#include "tests/support/TemporaryFolder.h"

using namespace zelvo::platform;
using zelvo::test::TemporaryFolder;

namespace {

class BundleTest : public testing::Test {
  protected:
    InstalledBundle bundle(std::vector<std::string> languages) {
        return {{folder / "bin", std::move(languages), "/home/ann/.local/share"}, reader};
    }
    std::string hello(std::vector<std::string> languages) {
        return bundle(std::move(languages)).localizedString("hello");
    }

    TemporaryFolder folder;
    PlistReader reader{""};
};

}  // namespace

TEST_F(BundleTest, SpeaksTheUsersLanguage) {
    folder.write("bin/resources/en.lproj/Localizable.strings", "hello = Hello;\nbye = Bye;\n");
    folder.write("bin/resources/de.lproj/Localizable.strings", "/* x */ hello = Hallo;\n");
    folder.write("bin/resources/zh-Hans.lproj/Localizable.strings", "hello = \"\\U4f60\";");
    EXPECT_EQ(hello({}), "Hello");
    EXPECT_EQ(hello({"de_AT.UTF-8@euro"}), "Hallo");
    EXPECT_EQ(hello({"zh_CN.UTF-8"}), "\u4f60");
    EXPECT_EQ(hello({"zh-Hans"}), "\u4f60");
    EXPECT_EQ(hello({"zh_TW"}), "Hello") << "the other script";
    EXPECT_EQ(hello({"xx", "de"}), "Hallo");
    EXPECT_EQ(hello({"../de"}), "Hello");
    EXPECT_EQ(bundle({"de"}).localizedString("bye"), "Bye");
    EXPECT_EQ(bundle({"de"}).localizedString("Other text."), "Other text.");
}

TEST_F(BundleTest, FindsItsResources) {
    EXPECT_EQ(bundle({}).resourcePath(), folder / "bin/resources");
    folder.write("share/zelvo/resources/x", "");
    folder.write("bin/x", "");
    EXPECT_EQ(bundle({}).resourcePath(), folder / "bin/../share/zelvo/resources");
    folder.write("bin/resources/x", "");
    EXPECT_EQ(bundle({}).resourcePath("app.zelvo.Zelvo"), folder / "bin/resources");
    EXPECT_EQ(bundle({}).resourcePath("another"), std::nullopt);
    EXPECT_EQ(bundle({}).userLibraryDirectory(), "/home/ann/.local/share/zelvo/Library");
}
