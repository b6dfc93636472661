#include "tests/app/Controller.h"

namespace zelvo::test {
namespace {

using LinkSharingTest = ControllerTest;
using Kind = platform::PasteboardObject::Kind;

TEST_F(LinkSharingTest, TheMenuOffersTheSystemsServicesAndCopyingLast) {
    controller.shareLink(&button);
    controller.copyLink();
    EXPECT_TRUE(fake.sharingServicePicker.items.empty());
    EXPECT_EQ(fake.pasteboard.objects.size(), 1u);

    launchToLink();
    controller.shareLink(&button);
    auto& picker = fake.sharingServicePicker;
    EXPECT_EQ(picker.items, (std::vector<std::string>{"SHARED_LINK_MESSAGE_TOP", "zelvo://abc",
                                                      "SHARED_LINK_MESSAGE_BOTTOM"}));
    EXPECT_EQ(picker.rect, button.bounds());
    EXPECT_EQ(picker.view, &button);
    EXPECT_EQ(picker.edge, platform::RectEdge::MinY);
    ASSERT_EQ(picker.services.size(), 2u);
    EXPECT_EQ(picker.services[0].title, "E-mail");
    EXPECT_EQ(picker.services[1].title, "Copy to Clipboard");
    EXPECT_EQ(picker.services[1].image, "receive-clipboard");
    EXPECT_EQ(picker.services[1].alternateImage, "receive-clipboard");

    picker.services[1].handler();
    EXPECT_EQ(fake.pasteboard.objects,
              (std::vector<platform::PasteboardObject>{{Kind::Url, "zelvo://abc"},
                                                       {Kind::String, "zelvo://abc"}}));
    controller.shareLink(nullptr);
    EXPECT_EQ(picker.rect, platform::Rect{});
}

TEST_F(LinkSharingTest, ALinkThatIsNoUrlIsCopiedAsTextAlone) {
    serviceGives("a b%zz");
    launchToLink();
    controller.copyLink();
    EXPECT_EQ(fake.pasteboard.objects,
              (std::vector<platform::PasteboardObject>{{Kind::String, "zelvo://a b%zz"}}));
}

TEST_F(LinkSharingTest, ANewLinkEndsTheOldOneForGood) {
    controller.makeNewLink();
    launchToLink();
    serviceGives("def");
    controller.makeNewLink();
    EXPECT_EQ(controller.sharedLink().value(), "");
    fake.loop.settle();
    EXPECT_EQ(fake.peer.last("delete.php").fields.at("link"), "abc");
    EXPECT_EQ(fake.peer.last("create.php").fields.at("permanentSharedLink"), "");
    EXPECT_EQ(controller.sharedLink().value(), "zelvo://def");
    EXPECT_EQ(fake.userDefaults.stringForKey("permanentSharedLink"), "def");
    EXPECT_EQ(fake.router.open, 1);

    // Whoever is inside goes with it, if the user wants that.
    fake.processes.records = {{"screensharingd", 7}};
    fake.sockets.connect(true);
    tick();
    controller.makeNewLink();
    fake.alerts.press(platform::AlertSecondButtonReturn);
    EXPECT_EQ(fake.peer.count("delete.php"), 1u);
    controller.makeNewLink();
    fake.peer.fail("create.php");
    fake.alerts.press(platform::AlertFirstButtonReturn);
    EXPECT_EQ(fake.authorization.tools.back(), "disconnect-screen-sharing.tool");
    fake.sockets.connect(false);
    fake.loop.settle();
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusMappingFailed);
    controller.linkManager()->invalidateLink(nullptr);
    EXPECT_EQ(fake.userDefaults.stringForKey("permanentSharedLink"), std::nullopt);
    EXPECT_EQ(fake.peer.last("delete.php").fields.at("link"), "def");
    EXPECT_EQ(fake.peer.count("update.php"), 0u);
}

TEST_F(LinkSharingTest, AnotherWayIsMadeBehindTheSameLink) {
    int changes = 0;
    const auto change = [&] { controller.changeWay([&] { ++changes; }); };
    change();
    launchToLink();
    change();
    EXPECT_EQ(controller.sharedLink().value(), "");
    fake.loop.settle();
    EXPECT_EQ(changes, 2);
    EXPECT_EQ(fake.peer.last("update.php").fields.at("availabilityStatus"), "1");
    EXPECT_EQ(fake.peer.last("create.php").fields.at("permanentSharedLink"), "abc");
    EXPECT_EQ(fake.peer.count("create.php"), 2u);
    EXPECT_EQ(controller.sharedLink().value(), "zelvo://abc");
    EXPECT_EQ(fake.router.open, 1);

    fake.processes.records = {{"screensharingd", 7}};
    fake.sockets.connect(true);
    tick();
    change();
    fake.alerts.press(platform::AlertSecondButtonReturn);
    EXPECT_EQ(changes, 2);
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusConnected);
    change();
    fake.alerts.press(platform::AlertFirstButtonReturn);
    EXPECT_EQ(changes, 3);
    EXPECT_EQ(fake.authorization.tools.back(), "disconnect-screen-sharing.tool");
    fake.sockets.connect(false);
    // While the link is being registered.
    fake.peer.hold(true);
    fake.loop.settle();
    change();
    fake.peer.hold(false);
    fake.peer.release();
    fake.loop.settle();
    EXPECT_EQ(fake.peer.count("create.php"), 4u);
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusWaitingForConnection);
    EXPECT_EQ(fake.router.open, 1);
}

TEST_F(LinkSharingTest, ClosingTheConnectionNeedsTheServiceOn) {
    launch();
    controller.closeConnection();
    EXPECT_TRUE(fake.authorization.requests.empty());
    fake.screenSharing(true);
    fake.sockets.connect(true);
    fake.loop.settle();
    tick();
    ASSERT_EQ(controller.zelvoStatus(), ZelvoStatusConnected);
    fake.authorization.onTool = [this](const std::string&) { fake.sockets.connect(false); };
    controller.closeConnection();
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusConnected);
    tick();
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusWaitingForConnection);
    EXPECT_EQ(fake.peer.count("update.php"), 0u);
}

TEST_F(LinkSharingTest, HelpFeedbackAndTheTitleBar) {
    fake.bundle.strings["HELP_PAGE_GENERAL"] = "help/d e/what?.html";
    controller.showHelp();
    EXPECT_EQ(fake.workspace.opened.back(), "file:///resources/help/d%20e/what%3F.html");
    controller.showFeedbackDialog();
    EXPECT_EQ(fake.feedback.calls.back(), "feedback 0");
    EXPECT_EQ(controller.titleBarHeight(), 22);
    EXPECT_EQ(controller.titleBarHeight(), 22);
    EXPECT_EQ(fake.windowSystem.asked, 1);
}

}  // namespace
}  // namespace zelvo::test
