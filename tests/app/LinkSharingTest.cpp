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
