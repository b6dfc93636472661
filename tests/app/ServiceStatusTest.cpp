#include "tests/app/Controller.h"

namespace zelvo::test {
namespace {

using ServiceStatusTest = ControllerTest;
using namespace std::chrono_literals;

TEST_F(ServiceStatusTest, ScreenSharingOnLeadsStraightToTheLink) {
    std::vector<std::int32_t> statuses;
    std::string linkAtSix = "unset";
    auto subscription = controller.zelvoStatusProperty().subscribe([&](std::int32_t status) {
        statuses.push_back(status);
        if (status == ZelvoStatusWaitingForConnection)
            linkAtSix = controller.sharedLink().value();
    });
    fake.screenSharing(true);
    launch();
    EXPECT_EQ(statuses, (std::vector<std::int32_t>{2, 3}));
    EXPECT_TRUE(mappingRowIs("Applying Port Mapping...", "NSStatusNone", true, false));
    EXPECT_EQ(controller.appIcon().value(), "AppIcon-Disabled");
    EXPECT_EQ(fake.router.requests.size(), 1u);
    EXPECT_FALSE(controller.readyToShare().value());

    fake.loop.settle();
    EXPECT_EQ(statuses, (std::vector<std::int32_t>{2, 3, 5, 6}));
    EXPECT_TRUE(mappingRowIs("Port Mapping Successful.", "NSStatusAvailable", false, false));
    EXPECT_EQ(controller.waitingForConnectionStatusText().value(), "Waiting for connection...");
    EXPECT_EQ(controller.waitingForConnectionStatusIcon().value(), "NSStatusNone");
    EXPECT_TRUE(controller.animateWaitingForConnectionSpinner().value());
    EXPECT_EQ(controller.appIcon().value(), "AppIcon-Enabled");
    EXPECT_TRUE(controller.readyToShare().value());
    // The link is told only after the status has reached 6.
    EXPECT_EQ(linkAtSix, "");
    EXPECT_EQ(controller.sharedLink().value(), "zelvo://abc");
    EXPECT_EQ(window.focused, (std::vector<platform::Button*>{&button}));
    EXPECT_EQ(fake.peer.count("create.php"), 1u);
    EXPECT_TRUE(fake.loop.waiting() == 1) << "only the delayed look at Screen Sharing waits";
}

TEST_F(ServiceStatusTest, WhileItIsOffOneEvaluationRunsATurn) {
    launch();
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusServiceDisabled);
    EXPECT_TRUE(mappingRowIs("Applying Port Mapping...", "NSStatusNone", true, true));
    EXPECT_TRUE(fake.peer.requests.empty());
    for (int i = 0; i < 5; ++i)
        controller.applicationDidBecomeActive();
    fake.loop.turn();
    auto asked = fake.sockets.asked;
    fake.loop.turn();
    EXPECT_EQ(fake.sockets.asked - asked, 1);

    // Half of Screen Sharing is not enough.
    fake.sockets.listen(true);
    fake.loop.turn();
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusServiceDisabled);

    fake.screenSharing(true);
    fake.loop.turn();
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusMappingPort);
    EXPECT_EQ(fake.loop.waiting(), 1u);
}

TEST_F(ServiceStatusTest, AFailureAsksAndTryAgainStartsOver) {
    fake.router.refuseAll(platform::NatErrorTimeout);
    launchToLink();
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusMappingFailed);
    EXPECT_TRUE(mappingRowIs("Port Mapping Error:", "NSStatusUnavailable", false, true));
    ASSERT_EQ(fake.alerts.shown.size(), 1u);
    const auto& alert = fake.alerts.shown[0].alert;
    EXPECT_EQ(alert.messageText, "Router Error");
    EXPECT_EQ(alert.informativeText, "Router Error Description");
    EXPECT_EQ(alert.icon, "NSCaution");
    EXPECT_EQ(alert.buttonTitles, (std::vector<std::string>{"Try Again", "Quit"}));
    ASSERT_TRUE(alert.showsHelp);
    EXPECT_TRUE(alert.showHelp());
    EXPECT_EQ(fake.workspace.opened,
              (std::vector<std::string>{"file:///resources/HELP_PAGE_ROUTER"}));

    fake.alerts.press(platform::AlertFirstButtonReturn);
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusMappingPort);
    fake.loop.settle();
    fake.alerts.press(platform::AlertSecondButtonReturn);
    EXPECT_EQ(fake.application.terminations, 1);
    // There is no link to withdraw.
    EXPECT_EQ(fake.application.replies, (std::vector<bool>{true}));
    EXPECT_TRUE(fake.peer.requests.empty());
}

TEST_F(ServiceStatusTest, FallingBackWithdrawsTheLinkAndALateAnswerIsTakenBackToo) {
    launchToLink();
    fake.screenSharing(false);
    controller.applicationDidBecomeActive();
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusServiceDisabled);
    fake.loop.turn();
    EXPECT_EQ(fake.peer.count("update.php"), 1u);
    EXPECT_EQ(controller.sharedLink().value(), "zelvo://abc");
    EXPECT_TRUE(controller.readyToShare().value());

    // Back on, and off again before the service has answered.
    fake.screenSharing(true);
    fake.peer.hold(true);
    fake.loop.settle();
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusMappingPort);
    fake.screenSharing(false);
    controller.applicationDidBecomeActive();
    auto updates = fake.peer.count("update.php");
    fake.peer.release();
    fake.loop.settle(10);
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusServiceDisabled);
    EXPECT_GT(fake.peer.count("update.php"), updates);
    EXPECT_EQ(fake.router.open, 0);
}

TEST_F(ServiceStatusTest, StartingOverDependsOnTheStatus) {
    fake.authorization.onTool = [this](const std::string&) { fake.screenSharing(true); };
    fake.router.refuseAll(platform::NatErrorTimeout);
    launch();
    controller.startOver();
    EXPECT_EQ(fake.authorization.tools.size(), 1u);
    fake.loop.settle();
    ASSERT_EQ(controller.zelvoStatus(), ZelvoStatusMappingFailed);
    fake.router.refuseAll(0);
    controller.startOver();
    fake.loop.settle();
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusWaitingForConnection);
    EXPECT_EQ(fake.router.requests.size(), 2u);
    EXPECT_EQ(fake.authorization.tools.size(), 1u);
}

TEST_F(ServiceStatusTest, TheWatchFollowsAViewerWithTwoTimersInTurn) {
    launchToLink();
    tick();
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusWaitingForConnection);
    fake.sockets.connect(true);
    fake.loop.advance(2900ms);
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusWaitingForConnection);
    fake.loop.advance(100ms);
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusConnected);
    EXPECT_EQ(controller.waitingForConnectionStatusText().value(), "Connection established.");
    EXPECT_EQ(controller.waitingForConnectionStatusIcon().value(), "NSStatusAvailable");
    EXPECT_FALSE(controller.animateWaitingForConnectionSpinner().value());
    EXPECT_EQ(fake.loop.timers(), 1u);
    // The timer that stopped itself stays where it was kept.
    ASSERT_NE(controller.waitingForConnectionTimer(), nullptr);
    EXPECT_FALSE(controller.waitingForConnectionTimer()->isValid());

    fake.sockets.connect(false);
    tick();
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusWaitingForConnection);
    EXPECT_EQ(fake.loop.timers(), 1u);

    // The same status runs nothing, and an unknown one only evaluates.
    const auto asked = fake.sockets.asked;
    controller.setZelvoStatus(ZelvoStatusWaitingForConnection);
    EXPECT_EQ(fake.sockets.asked, asked);
    controller.setZelvoStatus(42);
    EXPECT_EQ(fake.sockets.asked, asked + 1);
}

TEST_F(ServiceStatusTest, ALeftoverTimerStopsItselfAtItsOwnTick) {
    launchToLink();
    fake.loop.advance(1s);
    fake.screenSharing(false);
    controller.applicationDidBecomeActive();
    fake.screenSharing(true);
    fake.loop.settle();
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusWaitingForConnection);
    EXPECT_EQ(fake.loop.timers(), 2u);

    fake.sockets.connect(true);
    fake.loop.advance(2s);
    // The leftover saw the viewer first; the stored one was stopped for the still-active timer.
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusConnected);
    EXPECT_EQ(controller.waitingForConnectionTimer(), nullptr);
    EXPECT_EQ(fake.loop.timers(), 1u);
    fake.sockets.connect(false);
    tick();
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusWaitingForConnection);
}

TEST_F(ServiceStatusTest, ScreenSharingGoneWhileConnectedIsNoticedAndTheWatchGoesOn) {
    launchToLink();
    fake.sockets.connect(true);
    tick();
    fake.screenSharing(false);
    controller.applicationDidBecomeActive();
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusServiceDisabled);
    EXPECT_EQ(fake.loop.timers(), 1u);
    // The tick sets 6, whose own evaluation takes it back to 1.
    fake.sockets.connect(false);
    std::vector<std::int32_t> statuses;
    auto subscription = controller.zelvoStatusProperty().subscribe(
        [&](std::int32_t status) { statuses.push_back(status); });
    fake.loop.advance(3s);
    EXPECT_EQ(statuses, (std::vector<std::int32_t>{6, 1}));
}

}  // namespace
}  // namespace zelvo::test
