#include "platform/linux/SingleInstance.h"

#include "tests/support/TemporaryFolder.h"

using Outcome = zelvo::platform::SingleInstance::Outcome;
using zelvo::platform::SingleInstance;

TEST(SingleInstance, IsRefusedBesideAnotherAndWithoutALock) {
    zelvo::test::TemporaryFolder folder;
    folder.write("file", "");
    folder.write("run/x", "");
    auto outcome = [&](const char* state, const char* run, const char* config = "config") {
        return SingleInstance(folder / state, folder / run, folder / config).outcome();
    };
    {
        SingleInstance first(folder / "state", folder / "run", folder / "config");
        EXPECT_EQ(first.outcome(), Outcome::First);
        EXPECT_EQ(outcome("state", "run"), Outcome::Second);
        EXPECT_EQ(outcome("state", "file/run"), Outcome::Second) << "started without a login";
        EXPECT_EQ(outcome("other", "run"), Outcome::Second) << "with the same link";
        EXPECT_EQ(outcome("other", "run", "own"), Outcome::First) << "with folders of its own";
    }
    EXPECT_EQ(outcome("state", "run"), Outcome::First);

    // A file where a folder should be stops also root, whom permissions do not.
    SingleInstance first(folder / "file/state", folder / "run", folder / "config");
    EXPECT_EQ(first.outcome(), Outcome::First);
    EXPECT_EQ(outcome("file/state", "run"), Outcome::Second);
    EXPECT_EQ(outcome("file/state", "file/run"), Outcome::Unsure);
    EXPECT_EQ(SingleInstance("", "", "").outcome(), Outcome::Unsure);
}
