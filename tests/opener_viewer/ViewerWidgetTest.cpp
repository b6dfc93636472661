#include "opener/viewer/ViewerWidget.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QClipboard>
#include <QInputMethodEvent>
#include <QMenu>
#include <QScrollBar>
#include <QTest>

#include "tests/opener_viewer/Host.h"
#include "tests/qt/Wait.h"

namespace zelvo::opener {

namespace {

using test::waitFor;

constexpr int control = 65507;
constexpr int shift = 65505;

class ViewerWidgetTest : public testing::Test {
  protected:
    void open(ViewerWidget::Options options = {}) {
        widget = std::make_unique<ViewerWidget>(nullptr, options);
        QObject::connect(widget.get(), &ViewerWidget::firstPicture, [this] { ++pictures; });
        QObject::connect(widget.get(), &ViewerWidget::ended,
                         [this](const QString& text) { reason = text; });
        widget->resize(400, 300);
        widget->show();
        widget->activateWindow();
        widget->setFocus();
        EXPECT_TRUE(waitFor([&] { return widget->isActiveWindow() && widget->hasFocus(); }));
        widget->setStanding(true);
        widget->start(host.admit());
        EXPECT_TRUE(waitFor([&] { return pictures > 0; })) << reason.toStdString();
    }
    void openPixelByPixel() {
        open();
        widget->setFitsWindow(false);
        widget->verticalScrollBar()->setValue(0);
    }
    /// Pixel by pixel, as far as the view shows it.
    bool showsTheDesktop() {
        const auto view =
            widget->viewport()->grab().toImage().convertToFormat(QImage::Format_RGB32);
        const auto size = host.desktop.size;
        const int left = std::max(0, (view.width() - size.width) / 2);
        const int top = std::max(0, (view.height() - size.height) / 2);
        for (int y = 0; y < std::min(size.height, view.height()); ++y) {
            for (int x = 0; x < std::min(size.width, view.width()); ++x) {
                const auto at = static_cast<std::size_t>(y * size.width + x);
                if ((view.pixel(left + x, top + y) & 0xFFFFFFU) != host.desktop.pixels[at])
                    return false;
            }
        }
        return true;
    }
    /// What the host has been told once `last` has come, without that.
    std::string heardUntil(const std::string& last) {
        std::string all;
        EXPECT_TRUE(waitFor([&] {
            all += host.desktop.heard();
            return all.ends_with(last + "\n");
        })) << all;
        return all.substr(0, all.size() - std::min(all.size(), last.size() + 1));
    }
    void key(QEvent::Type type, int key, const QString& text = {},
             Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
        QKeyEvent event(type, key, modifiers, text);
        QApplication::sendEvent(widget.get(), &event);
    }
    void mouse(QPoint at, Qt::MouseButton button = Qt::LeftButton) {
        QTest::mousePress(widget->viewport(), button, {}, at);
        QTest::mouseRelease(widget->viewport(), button, {}, at);
    }

    test::Host host{{200, 100}};
    std::unique_ptr<ViewerWidget> widget;
    int pictures = 0;
    QString reason;
};

TEST_F(ViewerWidgetTest, ShowsThePictureExactlyAndInAnySize) {
    openPixelByPixel();
    EXPECT_TRUE(waitFor([&] { return showsTheDesktop(); }));
    host.desktop.become({200, 100});
    EXPECT_TRUE(waitFor([&] { return showsTheDesktop(); }));
    host.desktop.become({900, 700});
    EXPECT_TRUE(waitFor([&] { return showsTheDesktop(); }));
    EXPECT_GT(widget->verticalScrollBar()->maximum(), 300);
    EXPECT_EQ(pictures, 1);

    std::vector<std::uint32_t> shape(64, 0xFF123456);
    std::fill(shape.begin() + 32, shape.end(), 0);
    host.desktop.show({{8, 8}, {3, 2}, shape});
    EXPECT_TRUE(waitFor([&] {
        const auto cursor = widget->viewport()->cursor();
        const auto shown = cursor.pixmap().toImage();
        return cursor.hotSpot() == QPoint(3, 2) && shown.pixel(5, 2) == 0xFF123456 &&
               qAlpha(shown.pixel(5, 6)) == 0;
    }));
    widget->start(host.admit());
    EXPECT_TRUE(waitFor([&] { return pictures == 2 && showsTheDesktop(); })) << "another time";
}

TEST_F(ViewerWidgetTest, PointsExactly) {
    open();
    // 400 x 200 in 400 x 300: twice as large, 50 from above.
    mouse({0, 50});
    mouse({399, 249}, Qt::RightButton);
    mouse({101, 153}, Qt::MiddleButton);
    mouse({101, 20});
    EXPECT_EQ(heardUntil("pointer 50 51 0"),
              "pointer 0 0 1\npointer 0 0 0\npointer 199 99 4\npointer 199 99 0\n"
              "pointer 50 51 2\n");
    // What has begun in the picture goes on beside it.
    QTest::mousePress(widget->viewport(), Qt::LeftButton, {}, {200, 60});
    QMouseEvent move(QEvent::MouseMove, QPointF(500, 0), QPointF(500, 0), Qt::NoButton,
                     Qt::LeftButton, {});
    QApplication::sendEvent(widget->viewport(), &move);
    QTest::mouseRelease(widget->viewport(), Qt::LeftButton, {}, {500, 0});
    EXPECT_EQ(heardUntil("pointer 199 0 0"), "pointer 100 5 1\npointer 199 0 1\n");

    QWheelEvent wheel({200, 60}, {200, 60}, {}, {-120, 240}, {}, {}, Qt::NoScrollPhase, false);
    QApplication::sendEvent(widget->viewport(), &wheel);
    EXPECT_EQ(heardUntil("pointer 100 5 64\npointer 100 5 0"),
              "pointer 100 5 8\npointer 100 5 0\npointer 100 5 8\npointer 100 5 0\n");

    host.desktop.become({900, 700});
    widget->setFitsWindow(false);
    EXPECT_TRUE(waitFor([&] { return widget->verticalScrollBar()->maximum() > 300; }));
    widget->horizontalScrollBar()->setValue(100);
    widget->verticalScrollBar()->setValue(30);
    mouse({7, 9});
    EXPECT_EQ(heardUntil("pointer 107 39 0"), "pointer 107 39 1\n");
}

TEST_F(ViewerWidgetTest, TypesCharactersAndLetsGoOfKeys) {
    open();
    auto strike = [&](int code, const QString& text) {
        key(QEvent::KeyPress, code, text);
        key(QEvent::KeyRelease, code, text);
    };
    strike(Qt::Key_Eacute, "é");
    strike(Qt::Key_ssharp, "ß");
    strike(Qt::Key_unknown, "€");
    strike(Qt::Key_Backtab, {});
    strike(Qt::Key_AltGr, {});
    strike(Qt::Key_F5, {});
    QInputMethodEvent composed;
    composed.setCommitString("ñ\n");
    QApplication::sendEvent(widget.get(), &composed);
    EXPECT_EQ(heardUntil("up 65293"),
              "down 233\nup 233\ndown 223\nup 223\ndown 16785580\nup 16785580\ndown 65289\n"
              "up 65289\ndown 65474\nup 65474\ndown 241\nup 241\ndown 65293\n");

    key(QEvent::KeyPress, Qt::Key_Control);
    key(QEvent::KeyPress, Qt::Key_C, "\3", Qt::ControlModifier);
    widget->clearFocus();
    key(QEvent::KeyRelease, Qt::Key_C, "\3", Qt::ControlModifier);
    const auto released = heardUntil("up " + std::to_string(control));
    EXPECT_EQ(released, "down 65507\ndown 99\nup 99\n");

    widget->setFocus();
    int ways = 0;
    QObject::connect(widget.get(), &ViewerWidget::wayOut, [&] { ++ways; });
    key(QEvent::KeyPress, Qt::Key_Shift, {}, Qt::ShiftModifier);
    key(QEvent::KeyPress, Qt::Key_Escape, {},
        Qt::ControlModifier | Qt::AltModifier | Qt::ShiftModifier);
    EXPECT_EQ(heardUntil("up " + std::to_string(shift)), "down 65505\n");
    EXPECT_EQ(ways, 1);
    EXPECT_EQ(QWidget::keyboardGrabber(), nullptr);
    mouse({200, 150});
    EXPECT_EQ(QWidget::keyboardGrabber(), widget.get());
}

TEST_F(ViewerWidgetTest, OffersTheHostsKeysAndCorners) {
    open();
    HostFacts facts;
    facts.layout = "xx+%@";
    facts.hotKeys = {{32, {control, 65362}}, {4711, {65}}, {64, {32}}};
    facts.corners = {{HostCorner::Place::BottomRight, 4, {shift}},
                     {HostCorner::Place::TopLeft, 1, {}}};
    widget->setHostFacts(facts);
    QStringList texts;
    for (auto* action : widget->keysMenu()->actions()) {
        if (action->isEnabled() && !action->isSeparator()) {
            texts += action->text();
            action->trigger();
        }
    }
    EXPECT_EQ(texts, QStringList({"viewer-all-windows", "viewer-search", "viewer-bottom-right",
                                  "viewer-ctrl-alt-del", "viewer-super", "viewer-print",
                                  "viewer-alt-tab"}));
    EXPECT_EQ(heardUntil("down 65513\ndown 65289\nup 65289\nup 65513"),
              "down 65507\ndown 65362\nup 65362\nup 65507\ndown 32\nup 32\n"
              "down 65505\npointer 174 87 0\npointer 199 99 0\nup 65505\n"
              "down 65507\ndown 65513\ndown 65535\nup 65535\nup 65513\nup 65507\n"
              "down 65515\nup 65515\ndown 65377\nup 65377\n");
}

TEST_F(ViewerWidgetTest, SharesTheClipboardWhileItControls) {
    QApplication::clipboard()->setText("of before");
    open();
    host.desktop.copy("größer €\n");
    auto* clipboard = QApplication::clipboard();
    EXPECT_TRUE(waitFor([&] { return clipboard->text() == "größer €\n"; }));
    clipboard->setText("kürzer €");
    EXPECT_EQ(heardUntil("clipboard kürzer €"), "") << "neither an echo nor what was there before";
    clipboard->setText(QString(2 << 20, 'x'));
    widget->setStanding(false);
    clipboard->setText("secret");
    host.desktop.copy("also");
    mouse({100, 100});
    key(QEvent::KeyPress, Qt::Key_A, "a");
    QTest::qWait(100);
    widget->setStanding(true);
    EXPECT_EQ(heardUntil("clipboard secret"), "") << "copied meanwhile, told now";
    EXPECT_EQ(clipboard->text(), "secret");
}

TEST_F(ViewerWidgetTest, SendsNothingWhereItOnlyWatches) {
    open({.viewOnly = true});
    mouse({100, 100});
    key(QEvent::KeyPress, Qt::Key_A, "a");
    QApplication::clipboard()->setText("secret of a watcher");
    for (auto* action : widget->keysMenu()->actions())
        EXPECT_FALSE(action->isEnabled());
    host.desktop.become({300, 100});
    EXPECT_TRUE(waitFor([&] { return showsTheDesktop() || pictures > 0; }));
    QTest::qWait(50);
    EXPECT_EQ(host.desktop.heard(), "");
}

}  // namespace

}  // namespace zelvo::opener
