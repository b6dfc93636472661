#include <QCheckBox>
#include <QClipboard>
#include <QDialog>
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

TEST_F(MainWindowTest, ShowsTheModelAndWhatTheSystemKnows) {
    expect({{"statusTitle", "text", "Getting ready"}, {"shareButton", "enabled", "false"}});
    launch();
    expect({{"appIcon", "image", "AppIcon-Disabled"},
            {"versionInfo", "text", "Version 1.0"},
            {"portMappingSpinner", "spinning", "true"},
            {"portMappingButton", "visible", "true"},
            {"linkText", "text", ""}});
    explanations.sharing.set("No server here.");
    expect({{"statusExplanation", "text", "No server here."}});

    fake.screenSharing(true);
    fake.loop.settle();
    expect({{"statusTitle", "text", "Your link is ready"},
            {"portMappingText", "text", "Port Mapping Successful."},
            {"portMappingIcon", "image", "NSStatusAvailable"},
            {"portMappingButton", "visible", "false"},
            {"connectionText", "text", "Waiting for connection..."},
            {"linkText", "text", "zelvo://AbC-d_1"}});
    EXPECT_EQ(window.focusWidget(), find("shareButton"));
    explanations.routing.set("A second router.");
    expect({{"statusTitle", "text", "Your link may not work"},
            {"statusExplanation", "text", "A second router."}});
    explanations.routing.set("");
    explanations.kept.set("Not kept.");
    expect({{"statusTitle", "text", "Your link is ready"},
            {"statusExplanation", "text", "Not kept."}});

    connectViewer(true);
    expect({{"statusTitle", "text", "Somebody is connected"},
            {"connectionIcon", "image", "NSStatusAvailable"},
            {"connectionSpinner", "spinning", "false"}});
    EXPECT_EQ(property("statusExplanation", "text").substr(0, 5), "Press")
        << "not what a viewer disproves";
    explanations.news = "It leads nowhere now.";
    explanations.routing.set(explanations.news);
    expect({{"statusExplanation", "text", "It leads nowhere now."}});
    find<QPushButton>("disconnectButton")->click();
    EXPECT_EQ(fake.authorization.tools, std::vector<std::string>{"disconnect-screen-sharing.tool"});
    connectViewer(false);
    expect({{"disconnectButton", "visible", "false"}});
}

TEST_F(MainWindowTest, AnOddLinkIsShownEscapedAndCopiedAsItIs) {
    const std::string odd = "\x1B\n\"" + std::string(600'000, 'x');
    answerWith(odd);
    launch();
    const auto size = window.size();
    fake.screenSharing(true);
    fake.loop.settle();
    EXPECT_EQ(property("linkText", "text"), "zelvo://%1B%0A\"" + std::string(1009, 'x') + "…");
    EXPECT_EQ(window.size(), size);
    controller.copyLink();
    EXPECT_EQ(QApplication::clipboard()->text().toStdString(), "zelvo://" + odd);
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

TEST_F(MainWindowTest, CopyingLeavesTheLinkAsAddressAndAsTextAloneAndSaysSo) {
    launchToLink();
    auto copied = [&](auto copy) {
        QGuiApplication::clipboard()->setText("from before");
        copy();
        const auto* content = QGuiApplication::clipboard()->mimeData();
        EXPECT_EQ(content->formats(), (QStringList{"text/uri-list", "text/plain"}));
        EXPECT_EQ(content->data("text/uri-list").toStdString(), "zelvo://AbC-d_1\r\n");
        EXPECT_EQ(content->text().toStdString(), "zelvo://AbC-d_1");
        expect({{"notice", "text", "Copied"}, {"notice", "visible", "true"}});
    };
    copied([&] {
        controller.shareLink(&window.shareButton());
        ASSERT_TRUE(openMenu());
        auto* last = openMenu()->actions().last();
        EXPECT_EQ(last->text(), "Copy to Clipboard");
        last->trigger();
        openMenu()->close();
    });
    copied([&] { find<QAction>("actionCopyLink")->trigger(); });
    desktop.application.terminate();
    expect({{"notice", "visible", "false"}, {"versionInfo", "visible", "true"}});
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
    EXPECT_FALSE(enabled("actionCopyWebLink"));
    auto* useRelay = find<QPushButton>("useRelayButton");
    EXPECT_FALSE(useRelay->isVisible());
    wayIn.setIsBarred(true);
    EXPECT_TRUE(useRelay->isVisible());
    useRelay->click();
    EXPECT_EQ(fake.userDefaults.stringForKey("preferARelay"), "YES");
    wayIn.setIsBarred(false);
    EXPECT_FALSE(useRelay->isVisible());
    fake.loop.settle();
    find<QCheckBox>("onlyABrowser")->click();
    EXPECT_FALSE(fake.userDefaults.boolForKey("preferARelay"));
    find<QAction>("actionNeverARelay")->trigger();
    EXPECT_FALSE(find<QCheckBox>("onlyABrowser")->isChecked());
    EXPECT_FALSE(fake.userDefaults.boolForKey("preferARelay"));
    fake.loop.settle();
    connectViewer(true);
    find<QCheckBox>("onlyABrowser")->click();
    press(sheet(), 1);
    EXPECT_FALSE(find<QCheckBox>("onlyABrowser")->isChecked());
    EXPECT_TRUE(find<QAction>("actionNeverARelay")->isChecked());
    find<QAction>("actionDisconnect")->trigger();
    EXPECT_EQ(fake.authorization.tools.size(), 1u);
    find<QAction>("actionOnlyLinkHolders")->trigger();
    EXPECT_TRUE(find<QCheckBox>("onlyLinkHolders")->isChecked());
    for (const auto& [name, key] : {std::pair("actionNewLinks", "useNewLinkAtEveryLaunch"),
                                    std::pair("actionTrayIcon", "hideTrayIcon")}) {
        find<QAction>(name)->trigger();
        EXPECT_EQ(fake.userDefaults.stringForKey(key), "YES");
        find<QAction>(name)->trigger();
        EXPECT_FALSE(fake.userDefaults.stringForKey(key)) << key;
    }
    find<QAction>("actionHelp")->trigger();
    find<QAction>("actionRouterHelp")->trigger();
    EXPECT_EQ(fake.workspace.opened.size(), 2u);
    find<QAction>("actionFeedback")->trigger();
    EXPECT_TRUE(window.findChild<QDialog*>("feedbackDialog"));
    find<QAction>("actionAbout")->trigger();
    EXPECT_TRUE(window.findChild<QDialog*>("aboutDialog"));
    connectViewer(false);
    find<QAction>("actionQuit")->trigger();
    EXPECT_TRUE(desktop.application.isTerminating());
    expect({{"statusTitle", "text", "Quitting"}});
    explanations.remaining.set("Not told.");
    expect({{"statusTitle", "text", "Your link was not taken back"},
            {"statusExplanation", "text", "Not told."}});
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
