#include <QMenuBar>
#include <QTest>

#include "tests/qt/WindowFixture.h"

namespace zelvo::test {
namespace {

using SheetsTest = WindowTest;
using namespace std::chrono_literals;

std::vector<std::string> titles(QMessageBox* box) {
    std::vector<std::string> list;
    for (int i = 0; auto* button = box->findChild<QPushButton*>(QString("alertButton%1").arg(i));
         ++i)
        list.push_back(button->text().toStdString());
    return list;
}

TEST_F(SheetsTest, RouterErrorHelpsTriesAgainAndQuits) {
    explanations.routing.set("It does not answer.");
    fake.router.refuseAll(platform::NatErrorNoRouter);
    launchToLink();
    auto* box = sheet();
    ASSERT_TRUE(box);
    EXPECT_EQ(box->text(), "Router Error");
    EXPECT_EQ(box->informativeText(), "It does not answer.\n\nRouter Error Description");
    EXPECT_FALSE(find("portMappingButton")->isEnabled()) << "the sheet goes first";
    EXPECT_EQ(titles(box), (std::vector<std::string>{"Try Again", "Quit"}));
    EXPECT_LT(box->findChild<QPushButton*>("alertButton0")->x(),
              box->findChild<QPushButton*>("alertButton1")->x());
    EXPECT_TRUE(box->findChild<QPushButton*>("alertButton0")->isDefault());
    box->findChild<QPushButton*>("alertHelpButton")->click();
    EXPECT_EQ(fake.workspace.opened.size(), 1u);
    box->close();
    EXPECT_TRUE(box->isVisible());
    EXPECT_EQ(fake.router.requests.size(), 1u);

    explanations.routing.set("");
    press(box, 0);
    fake.loop.settle();
    EXPECT_EQ(fake.router.requests.size(), 2u);
    box = sheet();
    ASSERT_TRUE(box);
    EXPECT_EQ(box->informativeText(), "Router Error Description");
    press(box, 1);
    EXPECT_TRUE(desktop.application.hasTerminated());
}

TEST_F(SheetsTest, ASheetKeepsNobodyFromQuitting) {
    launchToLink();
    connectViewer(true);
    controller.setZelvoStatus(ZelvoStatusMappingFailed);
    ASSERT_TRUE(sheet());
    EXPECT_TRUE(find("disconnectButton")->isEnabled()) << "who is in can be put out at any time";
    EXPECT_TRUE(find("questionText")->isEnabled()) << "and whoever asks be read about";
    EXPECT_FALSE(QGuiApplication::modalWindow()) << "which Qt lets nobody close a window below";
    EXPECT_FALSE(window.close());
    auto* box = sheet();
    ASSERT_TRUE(box);
    EXPECT_EQ(box->text(), "Screen Sharing Session Undergoing") << "what the other asked is over";
    press(box, 1);
    EXPECT_TRUE(noSheet());
    EXPECT_TRUE(find("portMappingButton")->isEnabled());
    connectViewer(false);

    controller.setZelvoStatus(ZelvoStatusMappingFailed);
    box = sheet();
    ASSERT_TRUE(box);
    box->activateWindow();
    QTest::keyClick(box, Qt::Key_Q, Qt::ControlModifier);
    EXPECT_TRUE(noSheet());
    fake.loop.settle();
    EXPECT_TRUE(desktop.application.hasTerminated());
}

TEST_F(SheetsTest, ARefusedToolAsksAgain) {
    fake.authorization.rightStatus = platform::AuthorizationCanceled;
    launch();
    fake.loop.advance(500ms);
    auto* box = sheet();
    ASSERT_TRUE(box);
    EXPECT_EQ(box->text(), "Cannot activate require service");
    EXPECT_EQ(titles(box), (std::vector<std::string>{"Try Again", "Quit"}));
    EXPECT_FALSE(box->findChild<QPushButton*>("alertHelpButton"));
    press(box, 0);
    EXPECT_EQ(fake.authorization.requests.size(), 2u);
    // A second sheet waits for the first.
    controller.startOver();
    box = sheet();
    press(box, 1);
    EXPECT_TRUE(desktop.application.hasTerminated());
}

TEST_F(SheetsTest, ASessionIsEndedOrKept) {
    launchToLink();
    connectViewer(true);
    find<QAction>("actionQuit")->trigger();
    auto* box = sheet();
    ASSERT_TRUE(box);
    EXPECT_EQ(box->text(), "Screen Sharing Session Undergoing");
    EXPECT_EQ(titles(box), (std::vector<std::string>{"Yes", "No"}));
    box->close();
    EXPECT_FALSE(desktop.application.isTerminating());
    EXPECT_TRUE(fake.authorization.tools.empty());

    std::raise(SIGTERM);
    ASSERT_TRUE(sheet());
    std::raise(SIGTERM);
    ASSERT_TRUE(waitFor([&] { return !fake.authorization.tools.empty(); }));
    fake.loop.settle();
    EXPECT_TRUE(desktop.application.hasTerminated());
}

TEST_F(SheetsTest, NothingStartsAnewWhileQuittingCleansUp) {
    launchToLink();
    fake.peer.hold(true);
    controller.setZelvoStatus(ZelvoStatusMappingFailed);
    ASSERT_TRUE(sheet());
    controller.shareLink(&window.shareButton());
    desktop.application.terminate();
    EXPECT_TRUE(noSheet());
    EXPECT_FALSE(QApplication::activePopupWidget());
    EXPECT_FALSE(window.menuBar()->isEnabled());
    EXPECT_FALSE(find("shareButton")->isEnabled());
    EXPECT_EQ(property("statusTitle", "text"), "Quitting");
    controller.setZelvoStatus(ZelvoStatusMappingPort);
    controller.setZelvoStatus(ZelvoStatusMappingFailed);
    EXPECT_TRUE(noSheet());
    EXPECT_EQ(fake.router.requests.size(), 1u);
    EXPECT_FALSE(desktop.application.hasTerminated());
    fake.peer.release();
    fake.loop.settle();
    EXPECT_TRUE(desktop.application.hasTerminated());
}

TEST_F(SheetsTest, EndingWithASheetUpOrWaitingAnswersNobody) {
    int answers = 0;
    for (int i = 0; i < 2; ++i)
        desktop.alerts.beginSheet({{}, "a", "", "NSCaution", {"b"}, false, {}},
                                  [&](int) { ++answers; });
    ASSERT_TRUE(sheet());
    desktop.alerts.setWindow(nullptr);
    EXPECT_TRUE(noSheet());
    EXPECT_EQ(answers, 0);
}

}  // namespace
}  // namespace zelvo::test
