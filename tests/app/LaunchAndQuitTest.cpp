#include "tests/app/Controller.h"

namespace zelvo::test {
namespace {

using LaunchAndQuitTest = ControllerTest;
using namespace std::chrono_literals;
using Tools = std::vector<std::string>;
using Replies = std::vector<bool>;

constexpr const char* Enable = "enable-screen-sharing-and-guess-access.tool";
constexpr const char* Disable = "disable-screen-sharing-and-guess-access.tool";
constexpr const char* Disconnect = "disconnect-screen-sharing.tool";

TEST_F(LaunchAndQuitTest, LaunchPreparesTheWindowAndLeavesAServiceThatIsOnAlone) {
    // A connection without our server's process is no session to ask about at the end.
    fake.processes.records = {{"x11vnc", 7}};
    launchToLink();
    EXPECT_EQ(fake.feedback.calls, (std::vector<std::string>{"tracking", "issues on"}));
    ASSERT_TRUE(view.color);
    EXPECT_DOUBLE_EQ(view.color->red, 0.4980392156862745);
    EXPECT_DOUBLE_EQ(view.color->alpha, 0.1);
    EXPECT_EQ(controller.versionInfo().value(), "Version 1.0");
    EXPECT_EQ(button.mask, platform::EventMask::LeftMouseDown);
    EXPECT_TRUE(controller.screenSharingRunningFormerState());
    fake.loop.advance(10s);
    EXPECT_TRUE(fake.authorization.tools.empty());

    fake.sockets.connect(true);
    controller.applicationShouldTerminate();
    fake.loop.settle();
    EXPECT_EQ(fake.application.replies, Replies{true});
    EXPECT_TRUE(fake.authorization.tools.empty());
    EXPECT_EQ(fake.peer.last("update.php").fields.at("availabilityStatus"), "1");
    EXPECT_EQ(fake.router.open, 0);
}

TEST_F(LaunchAndQuitTest, WhatItSwitchedOnItSwitchesOffAgain) {
    fake.authorization.onTool = [this](const std::string& tool) {
        fake.screenSharing(tool == Enable);
    };
    launch();
    fake.loop.advance(499ms);
    EXPECT_TRUE(fake.authorization.tools.empty());
    fake.loop.advance(1ms);
    EXPECT_EQ(fake.authorization.tools, Tools{Enable});
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusWaitingForConnection);

    EXPECT_EQ(controller.applicationShouldTerminate(), platform::TerminateReply::Later);
    EXPECT_EQ(fake.authorization.tools, (Tools{Enable, Disable}));
    EXPECT_TRUE(fake.application.replies.empty());
    fake.loop.settle(10);
    EXPECT_EQ(fake.application.replies, Replies{true});
}

TEST_F(LaunchAndQuitTest, NothingIsSwitchedOffThatNeverCameUpOrListenedBefore) {
    for (const bool listensBefore : {false, true}) {
        fake.sockets.listen(listensBefore);
        if (listensBefore)
            fake.authorization.onTool = [this](const std::string&) { fake.screenSharing(true); };
        AppDelegate controller{fake.platform};
        controller.applicationDidFinishLaunching();
        fake.loop.advance(500ms);
        fake.loop.settle();
        EXPECT_EQ(controller.zelvoStatus() == ZelvoStatusWaitingForConnection, listensBefore);
        EXPECT_EQ(fake.peer.requests.empty(), !listensBefore);
        controller.applicationShouldTerminate();
        fake.loop.settle();
        EXPECT_EQ(std::exchange(fake.authorization.tools, {}), Tools{Enable});
        EXPECT_EQ(std::exchange(fake.application.replies, {}), Replies{true});
    }
}

TEST_F(LaunchAndQuitTest, WhatComesOnDuringTheQuitIsTakenBackToo) {
    fake.authorization.onTool = [this](const std::string& tool) {
        fake.screenSharing(tool == Enable);
    };
    launch();
    fake.loop.advance(500ms);
    fake.loop.settle();
    fake.screenSharing(false);
    controller.applicationDidBecomeActive();
    fake.loop.settle();
    fake.peer.hold(true);
    controller.applicationShouldTerminate();
    EXPECT_EQ(fake.authorization.tools, Tools{Enable});
    fake.screenSharing(true);
    fake.loop.turn();
    fake.peer.release();
    fake.peer.hold(false);
    fake.loop.settle(10);
    EXPECT_EQ(fake.authorization.tools, (Tools{Enable, Disable}));
    EXPECT_EQ(fake.application.replies, Replies{true});
}

TEST_F(LaunchAndQuitTest, ARefusedRightAsksAgainOrQuits) {
    fake.authorization.rightStatus = platform::AuthorizationCanceled;
    launch();
    fake.loop.advance(500ms);
    ASSERT_EQ(fake.alerts.shown.size(), 1u);
    const auto& alert = fake.alerts.shown[0].alert;
    EXPECT_EQ(alert.messageText, "Cannot activate require service");
    EXPECT_EQ(alert.informativeText,
              "Zelvo requires Screen Sharing to be activated. Would you like to try again?");
    fake.alerts.press(platform::AlertFirstButtonReturn);
    EXPECT_EQ(fake.alerts.count, 2);
    fake.alerts.press(platform::AlertSecondButtonReturn);
    EXPECT_EQ(fake.application.replies, Replies{true});
    EXPECT_TRUE(fake.authorization.tools.empty());
}

TEST_F(LaunchAndQuitTest, TheSessionSheetDecides) {
    launchToLink();
    fake.sockets.connect(true);
    fake.processes.records = {{"screensharingd", 7}};
    EXPECT_FALSE(controller.windowShouldClose());
    EXPECT_EQ(fake.application.terminations, 1);
    ASSERT_EQ(fake.alerts.shown.size(), 1u);
    const auto& alert = fake.alerts.shown[0].alert;
    EXPECT_EQ(alert.messageText, "Screen Sharing Session Undergoing");
    EXPECT_EQ(alert.informativeText,
              "There is a Screen Sharing session undergoing. Quitting the app will close that "
              "connection. Do you wish to continue?");
    EXPECT_EQ(alert.buttonTitles, (std::vector<std::string>{"Yes", "No"}));

    fake.alerts.press(platform::AlertSecondButtonReturn);
    EXPECT_EQ(fake.application.replies, Replies{false});
    EXPECT_EQ(fake.peer.count("update.php"), 0u);

    // "Yes", but the tool cannot be started: the quit is off.
    controller.applicationShouldTerminate();
    fake.authorization.executeStatus = platform::AuthorizationToolExecuteFailure;
    fake.alerts.press(platform::AlertFirstButtonReturn);
    EXPECT_EQ(fake.application.replies, (Replies{false, false}));
    EXPECT_EQ(fake.router.open, 1);

    controller.applicationShouldTerminate();
    fake.authorization.executeStatus = 0;
    fake.alerts.press(platform::AlertFirstButtonReturn);
    fake.loop.settle();
    EXPECT_EQ(fake.authorization.tools, Tools{Disconnect});
    EXPECT_EQ(fake.application.replies, (Replies{false, false, true}));
    EXPECT_EQ(fake.router.open, 0);
}

TEST_F(LaunchAndQuitTest, TheToolRunnerTellsItsFailuresApart) {
    std::vector<bool> answers;
    auto run = [&] {
        return controller.runToolWithPrivileges("a.tool", [&](bool ok) { answers.push_back(ok); });
    };
    fake.authorization.createStatus = -60008;
    EXPECT_FALSE(run());
    fake.authorization.createStatus = 0;
    fake.authorization.rightStatus = platform::AuthorizationCanceled;
    EXPECT_FALSE(run());
    fake.authorization.rightStatus = 0;
    fake.authorization.executeStatus = -60031;
    EXPECT_FALSE(run());
    EXPECT_EQ(fake.log.lines,
              (std::vector<std::string>{"Error 1: -60008", "Error 3: -60006", "Error 2: -60031"}));
    EXPECT_TRUE(fake.authorization.tools.empty());

    fake.authorization.executeStatus = 0;
    EXPECT_TRUE(run());
    EXPECT_EQ(answers, (std::vector<bool>{false, false, false, true}));
    EXPECT_EQ(fake.authorization.toolPaths, Tools{"/resources/a.tool"});
    EXPECT_EQ(fake.authorization.requests.back().right, "system.privilege.admin");
    EXPECT_EQ(fake.authorization.requests.back().flags, 19u);
    EXPECT_EQ(fake.authorization.freed,
              (std::vector<std::uint32_t>{platform::AuthorizationFlagDestroyRights}));
    EXPECT_EQ(fake.authorization.alive, 0);
}

TEST_F(LaunchAndQuitTest, ACompletionThatComesTooLateFindsNobody) {
    auto gone = std::make_unique<AppDelegate>(fake.platform);
    fake.screenSharing(true);
    fake.peer.hold(true);
    gone->applicationDidFinishLaunching();
    fake.loop.settle();
    gone.reset();
    fake.peer.release();
    fake.loop.advance(10s);
    EXPECT_TRUE(fake.application.replies.empty());
    EXPECT_EQ(fake.router.open, 0);
    EXPECT_EQ(fake.loop.timers(), 0u);
}

}  // namespace
}  // namespace zelvo::test
