#include <QCheckBox>
#include <QMouseEvent>
#include <QTest>
#include <QWindow>

#include "platform/qt/dialogs/Dialogs.h"
#include "platform/qt/viewers/Doorkeeper.h"
#include "tests/qt/WindowFixture.h"

namespace zelvo::test {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

platform::Viewer viewer(std::uint32_t id) {
    return {.id = id, .address = "::" + std::to_string(id), .since = {}};
}

platform::ViewerQuestion question(std::uint32_t id, std::chrono::steady_clock::time_point until) {
    return {.id = id, .address = "198.51.100.2", .until = until};
}

class DoorkeeperTest : public ::testing::Test {
  protected:
    static QDialog* dialog() { return platform::findDialog("questionDialog"); }
    static QPushButton* button(const char* name) {
        auto* found = dialog() ? dialog()->findChild<QPushButton*>(name) : nullptr;
        EXPECT_TRUE(found) << name;
        return found;
    }
    void ask(std::uint32_t id) { viewers.asked.set(question(id, now + 60s)); }
    void press(const char* name) { QTest::mousePress(button(name), Qt::LeftButton); }
    /// With the button held down.
    void drag(const char* name) {
        QPointF at(9, 9);
        QMouseEvent move(QEvent::MouseMove, at, button(name)->mapToGlobal(at), Qt::NoButton,
                         Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(button(name), &move);
    }
    void release(const char* name) { QTest::mouseRelease(button(name), Qt::LeftButton); }
    void click(const char* name) {
        press(name);
        if (dialog())
            release(name);
    }
    /// As the display sends it.
    void key(Qt::Key key) { QTest::keyClick(dialog()->windowHandle(), key); }
    void letIn(std::uint32_t id) { viewers.isInside.set({viewer(id)}); }
    Lines said() { return std::exchange(viewers.said, {}); }

    platform::FakeViewers viewers;
    ResourceBundle bundle;
    std::chrono::steady_clock::time_point now = std::chrono::steady_clock::now();
    platform::Doorkeeper doorkeeper{viewers, bundle, [this] { return now; }};
};

TEST_F(DoorkeeperTest, OnlyAClickThatCanHaveBeenMeantAnswers) {
    ask(1);
    EXPECT_EQ(said(), Lines{"question shown"});
    now += 999ms;
    click("questionHelp");
    press("questionHelp");
    now += 2s;
    QTest::mouseMove(button("questionHelp"));
    release("questionHelp");
    ASSERT_TRUE(dialog()) << "pressed before it was live";
    key(Qt::Key_A);
    click("questionHelp");
    now += 999ms;
    click("questionHelp");
    ASSERT_TRUE(dialog()) << "somebody types";
    now += 1ms;
    press("questionWatch");
    ask(2);
    now += 2s;
    drag("questionWatch");
    release("questionWatch");
    EXPECT_EQ(said(), Lines{}) << "the press was for another question";
    click("questionHelp");
    EXPECT_EQ(said(), (Lines{"question hidden", "answer 2 control"}));
    letIn(2);
    viewers.asked.set(std::nullopt);
    EXPECT_EQ(said(), Lines{});
}

TEST_F(DoorkeeperTest, KeysLetNobodyInUnlessTheUserHasAskedForTheQuestion) {
    for (auto letter : {Qt::Key_Y, Qt::Key_L, Qt::Key_Space, Qt::Key_Return}) {
        ask(letter);
        now += 1s;
        button("questionHelp")->setFocus();
        key(letter);
        QTest::keyClick(dialog()->windowHandle(), letter, Qt::AltModifier);
        ASSERT_TRUE(dialog());
    }
    EXPECT_EQ(said(), Lines{"question shown"});
    now += 1s;
    doorkeeper.showQuestion();
    key(Qt::Key_Tab);
    button("questionHelp")->setFocus();
    key(Qt::Key_Space);
    EXPECT_EQ(said(), Lines{});
    now += 1s;
    key(Qt::Key_Space);
    EXPECT_EQ(said().back(), "answer " + std::to_string(Qt::Key_Return) + " control");
    ask(1);
    EXPECT_TRUE(dialog()->windowHandle()->flags() & Qt::WindowDoesNotAcceptFocus);
}

TEST_F(DoorkeeperTest, WhatIsNotAYesRefuses) {
    auto answers = [&](std::uint32_t id, auto act) {
        ask(id);
        now += 1s;
        act();
        EXPECT_FALSE(dialog());
        return said().back() == "answer " + std::to_string(id) + " refuse";
    };
    EXPECT_TRUE(answers(1, [&] { key(Qt::Key_Escape); }));
    EXPECT_TRUE(answers(2, [&] { dialog()->close(); }));
    EXPECT_TRUE(answers(3, [&] { click("questionRefuse"); }));
    EXPECT_TRUE(answers(4, [&] { doorkeeper.refuse(4); }));
    EXPECT_FALSE(answers(5, [&] { click("questionRefuseEverybody"); }));
    EXPECT_TRUE(viewers.refuses.value());
    ask(6);
    doorkeeper.refuse(6);
    ASSERT_TRUE(dialog()) << "too early to be meant";
    viewers.asked.set(std::nullopt);
    EXPECT_FALSE(dialog());
    EXPECT_EQ(said(), (Lines{"question shown", "question hidden"}));
}

TEST_F(DoorkeeperTest, WhileSomebodyIsInsideTheQuestionIsShownByTheUsersWishAlone) {
    letIn(1);
    ask(2);
    EXPECT_FALSE(dialog());
    doorkeeper.showQuestion();
    click("questionWatch");
    EXPECT_EQ(said(), Lines{"question shown"}) << "it rests, however it came up";
    ask(3);
    EXPECT_FALSE(dialog());
    EXPECT_EQ(said(), Lines{"question hidden"});
    viewers.isInside.set({});
    EXPECT_TRUE(dialog());
    doorkeeper.end();
    ask(4);
    EXPECT_EQ(said(), (Lines{"question shown", "question hidden"}));
}

TEST_F(DoorkeeperTest, WhereTheDesktopTakesNoInputNobodyIsOfferedToHelp) {
    for (bool can : {true, false, true}) {
        viewers.able.set({can, can});
        ask(can ? 1 : 2);
        EXPECT_EQ(button("questionHelp")->isVisible(), can);
        EXPECT_NE(dialog()->findChild<QLabel*>("questionOnlyWatching")->isVisible(), can);
        EXPECT_NE(dialog()->accessibleDescription().contains("no keys"), can);
    }
}

TEST_F(DoorkeeperTest, WhoHasTheLinkIsNamedAndHasDigitsToCompare) {
    auto shown = [](const char* name) {
        auto* label = dialog()->findChild<QLabel*>(name);
        return label->isVisible() ? label->text().toStdString() : "-";
    };
    ask(1);
    EXPECT_EQ(shown("questionTitle"), "Somebody wants to see your screen");
    EXPECT_EQ(shown("questionProof").find("This viewer has no proof"), 0U);
    EXPECT_EQ(shown("questionDigits"), "-");
    auto proven = question(2, now + 60s);
    proven.name = "<b>שרה " + std::string(40, 'W');
    proven.digits = "012 345 678 901";
    viewers.asked.set(proven);
    // Kept apart from the sentence, and never wider than a line.
    EXPECT_EQ(shown("questionTitle").find("\u2068<b>שרה WWWWWWWWWWWW\u200bWWWW"), 0U);
    EXPECT_NE(shown("questionTitle").find("WWWW\u2069, who has your link"), std::string::npos);
    EXPECT_EQ(shown("questionDigits"), proven.digits);
    EXPECT_TRUE(dialog()->accessibleDescription().contains("012 345 678 901"));
    EXPECT_LE(dialog()->findChild<QLabel*>("questionTitle")->minimumSizeHint().width(),
              dialog()->findChild<QLabel*>("questionTitle")->width());
}

TEST_F(WindowTest, TheWindowTellsWhoAsksAndWhoIsInside) {
    launchToLink();
    auto asked = question(1, {});
    asked.name = "Ana";
    viewers.asked.set(asked);
    expect(
        {{"questionText", "text", "\u2068Ana\u2069, who has your link, wants to see your screen"},
         {"statusTitle", "text", "Somebody wants in"},
         {"statePanel", "state", "asking"},
         {"disconnectButton", "visible", "false"}});
    find<QPushButton>("showQuestionButton")->click();
    EXPECT_TRUE(platform::findDialog("questionDialog"));
    viewers.asked.set(std::nullopt);
    auto one = viewer(1);
    one.rights = platform::ViewerRights::Control;
    viewers.isInside.set({one});
    expect({{"statusTitle", "text", "Somebody is connected"},
            {"statePanel", "state", "connected"},
            {"viewer1", "text", "::1 uses your mouse and keyboard"},
            {"viewerDisconnect1", "visible", "false"},
            {"questionLine", "visible", "false"}});
    viewers.isInside.set({one, viewer(2)});
    // Who controls is not to let others do so.
    expect({{"viewerRights1", "enabled", "true"}, {"viewerRights2", "enabled", "false"}});
    viewers.able.set({false, false});
    explanations.limits.set("No keys.");
    viewers.isInside.set({viewer(2), viewer(3)});
    EXPECT_TRUE(find("viewerRights3")->isHidden());
    EXPECT_TRUE(property("statusExplanation", "text").ends_with("quit Zelvo.\nNo keys."));
    find<QPushButton>("viewerDisconnect2")->click();
    viewers.said.clear();
    fake.authorization.onTool = [&](const std::string&) {
        EXPECT_EQ(viewers.said, Lines{"disconnect everybody"}) << "at once, not after the tool";
    };
    find<QPushButton>("disconnectButton")->click();
    EXPECT_EQ(fake.authorization.tools.size(), 1U);
    viewers.isAway.set({viewer(2)});
    viewers.isInside.set({});
    expect({{"disconnectButton", "visible", "true"}, {"actionDisconnect", "enabled", "true"}});
    EXPECT_TRUE(property("viewer2", "text").ends_with("come back unasked within a minute"));
    viewers.isAway.set({});
    EXPECT_TRUE(property("statusExplanation", "text").ends_with("gets in.\nNo keys."));
    viewers.refuses.set(true);
    find<QPushButton>("askAgainButton")->click();
    EXPECT_EQ(viewers.said.back(), "ask again");
    find<QCheckBox>("onlyLinkHolders")->click();
    EXPECT_EQ(viewers.said.back(), "only link holders");
    viewers.onlyLinkHolders.set(false);
    expect({{"onlyLinkHolders", "checked", "false"}});
    expect({{"viewersPanel", "visible", "false"}, {"statePanel", "state", ""}});
}

}  // namespace
}  // namespace zelvo::test
