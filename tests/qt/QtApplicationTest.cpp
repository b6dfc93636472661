#include "platform/qt/core/QtApplication.h"

#include <gtest/gtest.h>

#include <QTimer>
#include <QWidget>
#include <csignal>

#include "platform/ApplicationDelegate.h"
#include "platform/qt/DesktopApplication.h"
#include "platform/qt/core/QtMainLoop.h"
#include "platform/qt/core/QuitSignals.h"
#include "tests/qt/Wait.h"

namespace zelvo::platform {
namespace {

struct Delegate final : ApplicationDelegate {
    void applicationDidFinishLaunching() override {}
    void applicationDidBecomeActive() override {}
    TerminateReply applicationShouldTerminate() override {
        ++asked;
        if (during)
            during();
        return TerminateReply::Later;
    }
    bool windowShouldClose() override { return false; }

    int asked = 0;
    std::function<void()> during;
};

struct QtApplicationTest : testing::Test {
    QtApplicationTest() { application.setDelegate(&delegate); }
    Delegate delegate;
    QtApplication application;
};

TEST_F(QtApplicationTest, AsksOnceWhileAnAnswerIsPending) {
    application.replyToApplicationShouldTerminate(true);
    EXPECT_FALSE(application.hasTerminated());

    int found = -1;
    application.setBeforeQuit([&] { found = delegate.asked; });
    application.terminate();
    EXPECT_EQ(found, 0);
    application.terminate();
    EXPECT_EQ(delegate.asked, 1);
    application.replyToApplicationShouldTerminate(false);
    application.terminate();
    EXPECT_EQ(delegate.asked, 2);
    application.replyToApplicationShouldTerminate(true);
    EXPECT_TRUE(application.hasTerminated());
    application.terminate();
    EXPECT_EQ(delegate.asked, 2);
}

TEST_F(QtApplicationTest, AnAnswerInsideTheQuestionEndsTheLoop) {
    QtMainLoop loop;
    delegate.during = [&] { application.replyToApplicationShouldTerminate(true); };
    loop.async([&] { application.terminate(); });
    EXPECT_EQ(loop.run(), 0);
    EXPECT_FALSE(loop.isOpen());
}

TEST_F(QtApplicationTest, ASecondSignalAnswersTheQuestionOfTheFirst) {
    int answers = 0;
    application.setSessionAnswer([&] { ++answers; });
    QuitSignals watch([&] { application.terminateFromOutside(); });
    std::raise(SIGPIPE);

    std::raise(SIGTERM);
    EXPECT_TRUE(test::waitFor([&] { return delegate.asked == 1; }));
    EXPECT_EQ(answers, 0);
    std::raise(SIGINT);
    EXPECT_TRUE(test::waitFor([&] { return answers == 1; }));

    application.replyToApplicationShouldTerminate(false);
    std::raise(SIGHUP);
    EXPECT_TRUE(test::waitFor([&] { return delegate.asked == 2; }));
    EXPECT_EQ(answers, 1);
}

TEST(DesktopApplication, LeavesTheWindowUpForLastWordsUnlessAskedAgain) {
    QWidget window;
    for (bool fromOutside : {true, false}) {
        QtMainLoop loop;
        DesktopApplication application;
        application.setWindow(&window);
        loop.async([&] {
            if (fromOutside)
                application.terminateFromOutside();
            else
                application.terminate();
        });
        loop.run();
        application.showLastWords("");
        int shown = 0;
        QTimer::singleShot(0, &window, [&] {
            ++shown;
            application.terminate();
        });
        application.showLastWords("said");
        EXPECT_EQ(shown, fromOutside ? 0 : 1);
        EXPECT_TRUE(test::waitFor([&] { return shown == 1; }));
    }
}

TEST(DesktopApplication, AnAccessoryIsNotInTheTaskBar) {
    DesktopApplication application;
    QWidget window;
    application.setWindow(&window);
    window.show();
    // Window managers keep tool windows out of it.
    application.setActivationPolicy(ActivationPolicy::Accessory);
    EXPECT_EQ(window.windowType(), Qt::Tool);
    EXPECT_TRUE(window.isVisible());
    application.setActivationPolicy(ActivationPolicy::Regular);
    EXPECT_EQ(window.windowType(), Qt::Window);
    EXPECT_TRUE(window.isVisible());
}

}  // namespace
}  // namespace zelvo::platform
