#include "platform/linux/screen_sharing/ScreenSharingSettings.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <utility>

#include "platform/Viewers.h"
#include "platform/linux/property_lists/PlistReader.h"
#include "platform/linux/screen_sharing/ScreenSharingExplanation.h"
#include "tests/support/FakeHost.h"
#include "tests/support/ManualLoop.h"
#include "tests/support/TemporaryFolder.h"

using namespace zelvo::platform;
using namespace zelvo::test;

namespace {

class ScreenSharingExplanationTest : public testing::Test {
  protected:
    std::string said() {
        explanation->update();
        loop.settle();
        return explanation->text().value();
    }
    void makeExplanation(std::chrono::seconds patience = std::chrono::seconds(60)) {
        explanation =
            std::make_unique<ScreenSharingExplanation>(loop, bundle, folder / "reason", patience);
        subscription = explanation->text().subscribe([this](const auto&) { ++writes; });
    }

    TemporaryFolder folder;
    ManualLoop loop;
    FakeBundle bundle;
    int writes = 0;
    std::unique_ptr<ScreenSharingExplanation> explanation;
    Subscription subscription;
};

}  // namespace

TEST(ScreenSharingSettingsTest, CountsOnlyWhileOurServerListens) {
    TemporaryFolder folder;
    PlistReader files{folder.path()};
    bool listens = false;
    int believed = 0;
    ScreenSharingSettings settings(
        files, {.serverListens = [&] { return listens; }, .believed = [&] { ++believed; }});
    auto isThere = [&](const std::string& path) {
        auto found = settings.dictionaryWithContentsOfFile(path);
        return found && found->contains("ScreenSharingReqPermEnabled");
    };
    const std::string path = ScreenSharingSettings::path;
    EXPECT_FALSE(isThere(path)) << "no file";
    folder.write(path.substr(1), "{ScreenSharingReqPermEnabled = 1;}");
    EXPECT_FALSE(isThere(path));
    listens = true;
    EXPECT_TRUE(isThere(path));
    EXPECT_EQ(believed, 1);
    folder.write(path.substr(1), "{ScreenSharingReqPermEnabled = 0;}");
    listens = false;
    EXPECT_TRUE(isThere(path)) << "off needs no proof";
    folder.write("Library/other.plist", "{ScreenSharingReqPermEnabled = 1;}");
    EXPECT_TRUE(isThere("/Library/other.plist"));
    EXPECT_TRUE(settings.fileExists("/Library/other.plist"));
    EXPECT_EQ(believed, 1);
}

TEST_F(ScreenSharingExplanationTest, SaysEachNewReasonOnce) {
    bundle.strings["There is no screen to share here. Start Zelvo in a desktop session."] = "Blind";
    folder.write("reason", "no-display\n");
    makeExplanation();
    EXPECT_EQ(said(), "") << "an earlier run's";
    std::filesystem::remove(folder / "reason");
    EXPECT_EQ(said(), "");
    folder.write("reason", "no-display\n");
    EXPECT_EQ(said(), "Blind");
    auto before = writes;
    EXPECT_EQ(said(), "Blind");
    EXPECT_EQ(writes, before);
    folder.write("next", "something new\n");
    std::filesystem::rename(folder / "next", folder / "reason");
    EXPECT_NE(said().find("did not start"), std::string::npos);
    std::filesystem::remove(folder / "reason");
    EXPECT_EQ(said(), "");

    folder.write("reason", "no-display\n");
    explanation->update();
    explanation.reset();
    loop.settle();
}

TEST_F(ScreenSharingExplanationTest, FollowsTheToolAndTheServer) {
    makeExplanation();
    const auto& works = explanation->toolWorks();
    auto says = [this](const char* words) { return said().find(words) != std::string::npos; };
    explanation->toolStarted();
    EXPECT_EQ(said(), "");
    EXPECT_TRUE(works.value());
    folder.write("reason", "");
    EXPECT_TRUE(says("cannot be written")) << "a full disk leaves no room for a word";
    EXPECT_FALSE(works.value());
    explanation->toolStarted();
    EXPECT_EQ(said(), "") << "it is tried again";
    explanation->desktopAsks();
    explanation->serverEnded();
    EXPECT_EQ(said(), "") << "the tool has not said why yet";
    EXPECT_TRUE(works.value());
    folder.write("reason", "desktop-refused");
    EXPECT_TRUE(says("not allowed"));
    explanation->toolStarted();
    explanation->serverListens();
    EXPECT_FALSE(works.value());
    explanation->serverEnded();
    EXPECT_TRUE(says("has ended"));
    explanation->desktopWithdraws();
    explanation->serverEnded();
    EXPECT_TRUE(says("in its top bar"));
    explanation->serverListens();
    EXPECT_EQ(said(), "") << "it was started anew";
    const std::pair<ViewerAbilities, const char*> limits[] = {
        {{false, false, true}, "has no part"},
        {{false, true, true}, "was off"},
        {{true, true, false}, "what is copied"},
        {{}, ""}};
    for (const auto& [abilities, words] : limits) {
        explanation->desktopLets(abilities);
        EXPECT_NE(explanation->limits().value().find(words), std::string::npos) << words;
        EXPECT_EQ(explanation->limits().value().empty(), !*words);
    }

    makeExplanation(std::chrono::seconds(0));
    explanation->toolStarted();
    EXPECT_TRUE(says("did not start")) << "the tool left nothing behind";
    EXPECT_FALSE(explanation->toolWorks().value());
}
