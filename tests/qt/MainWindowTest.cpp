#include <QClipboard>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QMouseEvent>

#include "tests/qt/WindowFixture.h"

namespace zelvo::test {
namespace {

using MainWindowTest = WindowTest;
using namespace std::chrono_literals;

void sendMouse(QWidget* widget, QEvent::Type type) {
    auto buttons = type == QEvent::MouseButtonPress ? Qt::LeftButton : Qt::NoButton;
    QPointF at = widget->rect().center();
    QMouseEvent event(type, at, widget->mapToGlobal(at), Qt::LeftButton, buttons, Qt::NoModifier);
    QApplication::sendEvent(widget, &event);
}

QMenu* openMenu() {
    return qobject_cast<QMenu*>(QApplication::activePopupWidget());
}

void sendKey(QWidget* widget, Qt::Key key) {
    for (auto type : {QEvent::KeyPress, QEvent::KeyRelease}) {
        QKeyEvent event(type, key, Qt::NoModifier);
        QApplication::sendEvent(widget, &event);
    }
}

TEST_F(MainWindowTest, ShowsEveryStatusOnTheRoadOfALink) {
    EXPECT_EQ(property("statusTitle", "text"), "Getting ready");
    EXPECT_EQ(property("appIcon", "image"), "AppIcon-Disabled");
    EXPECT_FALSE(find("shareButton")->isEnabled());

    launch();
    EXPECT_EQ(property("statusTitle", "text"), "Screen Sharing is off");
    EXPECT_EQ(property("versionInfo", "text"), "Version 1.0");
    EXPECT_EQ(property("appIcon", "image"), "AppIcon-Disabled");
    EXPECT_EQ(property("portMappingText", "text"), "Applying Port Mapping...");
    EXPECT_EQ(property("portMappingIcon", "image"), "NSStatusNone");
    EXPECT_TRUE(spins("portMappingSpinner"));
    EXPECT_TRUE(shown("portMappingButton"));
    EXPECT_FALSE(shown("disconnectButton"));

    explanations.sharing.set("No server here.");
    EXPECT_EQ(property("statusExplanation", "text"), "No server here.");

    fake.screenSharing(true);
    fake.peer.hold(true);
    fake.loop.settle();
    EXPECT_EQ(property("statusTitle", "text"), "Making your link");
    EXPECT_FALSE(shown("portMappingButton"));
    EXPECT_EQ(property("linkText", "text"), "");

    fake.peer.release();
    fake.peer.hold(false);
    fake.loop.settle();
    EXPECT_EQ(property("statusTitle", "text"), "Your link is ready");
    EXPECT_EQ(property("appIcon", "image"), "AppIcon-Enabled");
    EXPECT_EQ(property("portMappingText", "text"), "Port Mapping Successful.");
    EXPECT_EQ(property("portMappingIcon", "image"), "NSStatusAvailable");
    EXPECT_FALSE(spins("portMappingSpinner"));
    EXPECT_EQ(property("connectionText", "text"), "Waiting for connection...");
    EXPECT_TRUE(spins("connectionSpinner"));
    EXPECT_EQ(property("linkText", "text"), "zelvo://AbC-d_1");
    EXPECT_TRUE(find("shareButton")->isEnabled());
    EXPECT_EQ(window.focusWidget(), find("shareButton"));
    explanations.routing.set("A second router.");
    EXPECT_EQ(property("statusTitle", "text"), "Your link may not work");
    EXPECT_EQ(property("statusExplanation", "text"), "A second router.");

    connectViewer(true);
    EXPECT_EQ(property("statusTitle", "text"), "Somebody is connected");
    EXPECT_EQ(property("connectionText", "text"), "Connection established.");
    EXPECT_EQ(property("connectionIcon", "image"), "NSStatusAvailable");
    EXPECT_FALSE(spins("connectionSpinner"));
    find<QPushButton>("disconnectButton")->click();
    EXPECT_EQ(fake.authorization.tools, std::vector<std::string>{"disconnect-screen-sharing.tool"});

    connectViewer(false);
    EXPECT_FALSE(shown("disconnectButton"));
    EXPECT_TRUE(shown("linkText"));
}

TEST_F(MainWindowTest, TheShareButtonActsOnThePressAndOnTheKeyboard) {
    auto* button = find<QPushButton>("shareButton");
    sendMouse(button, QEvent::MouseButtonPress);
    EXPECT_FALSE(openMenu());
    launchToLink();
    sendMouse(button, QEvent::MouseButtonPress);
    ASSERT_TRUE(openMenu());
    openMenu()->close();
    sendMouse(button, QEvent::MouseButtonRelease);
    EXPECT_FALSE(openMenu());
    for (auto key : {Qt::Key_Space, Qt::Key_Return}) {
        sendKey(button, key);
        ASSERT_TRUE(openMenu());
        openMenu()->close();
    }
}

TEST_F(MainWindowTest, CopyingLeavesTheLinkAsAddressAndAsTextAlone) {
    QGuiApplication::clipboard()->setText("from before");
    launchToLink();
    controller.shareLink(&window.shareButton());
    ASSERT_TRUE(openMenu());
    auto* copy = openMenu()->actions().last();
    EXPECT_EQ(copy->text(), "Copy to Clipboard");
    copy->trigger();
    openMenu()->close();

    const auto* content = QGuiApplication::clipboard()->mimeData();
    EXPECT_EQ(content->formats(), (QStringList{"text/uri-list", "text/plain"}));
    EXPECT_EQ(content->data("text/uri-list").toStdString(), "zelvo://AbC-d_1\r\n");
    EXPECT_EQ(content->text().toStdString(), "zelvo://AbC-d_1");
}

TEST_F(MainWindowTest, TicksWaitWhileTheMenuIsOpen) {
    int ticks = 0;
    auto timer = loop.scheduleTimer(1ms, [&](platform::Timer&) { ++ticks; });
    launchToLink();
    ASSERT_TRUE(waitFor([&] { return ticks > 0; }));
    controller.shareLink(nullptr);
    ASSERT_TRUE(openMenu());
    ticks = 0;
    int turns = 0;
    ASSERT_TRUE(waitFor([&] { return ++turns > 20; }));
    EXPECT_EQ(ticks, 0);
    openMenu()->close();
    EXPECT_TRUE(waitFor([&] { return ticks > 0; }));
}

TEST_F(MainWindowTest, ClosingTheWindowAsksTheControllerAndKeepsTheWindow) {
    launchToLink();
    connectViewer(true);
    EXPECT_FALSE(window.close());
    EXPECT_TRUE(window.isVisible());
    auto* box = sheet();
    ASSERT_TRUE(box);
    press(box, 1);
    EXPECT_FALSE(desktop.application.isTerminating());
    EXPECT_TRUE(noSheet());

    connectViewer(false);
    EXPECT_FALSE(window.close());
    EXPECT_TRUE(noSheet());
    fake.loop.settle();
    EXPECT_TRUE(desktop.application.hasTerminated());
    EXPECT_TRUE(window.isVisible());
}

TEST_F(MainWindowTest, EveryMenuEntryHasItsAction) {
    auto enabled = [&](const char* name) { return find<QAction>(name)->isEnabled(); };
    launch();
    EXPECT_FALSE(enabled("actionShare"));
    EXPECT_FALSE(enabled("actionCopyLink"));
    fake.screenSharing(true);
    fake.loop.settle();
    EXPECT_TRUE(enabled("actionShare"));
    EXPECT_FALSE(enabled("actionDisconnect"));
    find<QAction>("actionCopyLink")->trigger();
    EXPECT_EQ(QGuiApplication::clipboard()->text(), "zelvo://AbC-d_1");
    connectViewer(true);
    find<QAction>("actionDisconnect")->trigger();
    EXPECT_EQ(fake.authorization.tools.size(), 1u);
    find<QAction>("actionHelp")->trigger();
    find<QAction>("actionRouterHelp")->trigger();
    EXPECT_EQ(fake.workspace.opened.size(), 2u);
    find<QAction>("actionFeedback")->trigger();
    EXPECT_TRUE(window.findChild<QDialog*>("feedbackDialog"));
    find<QAction>("actionAbout")->trigger();
    EXPECT_TRUE(window.findChild<QDialog*>("aboutDialog"));
    find<QAction>("actionQuit")->trigger();
    EXPECT_TRUE(desktop.application.isTerminating());
    // With a session the quit asks first, and goes on here.
    controller.isQuitting().set(true);
    EXPECT_EQ(find<QLabel>("statusTitle")->text(), "Quitting");
    explanations.remaining.set("Not told.");
    EXPECT_EQ(find<QLabel>("statusTitle")->text(), "Your link was not taken back");
    EXPECT_EQ(find<QLabel>("statusExplanation")->text(), "Not told.");
}

TEST_F(MainWindowTest, TheViewFillsWhatIsDirtyWithItsColour) {
    KVView view;
    view.resize(20, 20);
    QImage plain(20, 20, QImage::Format_ARGB32_Premultiplied);
    plain.fill(Qt::white);
    auto drawn = plain;
    view.render(&drawn, {}, {}, QWidget::RenderFlags());
    EXPECT_EQ(drawn, plain);
    view.setBackgroundColor({0, 0, 0, 0.5});
    view.render(&drawn, QPoint(5, 0), QRect(5, 0, 10, 20), QWidget::RenderFlags());
    EXPECT_EQ(drawn.pixelColor(0, 10), QColor(Qt::white));
    EXPECT_NEAR(drawn.pixelColor(10, 10).red(), 127, 1);
}

}  // namespace
}  // namespace zelvo::test
