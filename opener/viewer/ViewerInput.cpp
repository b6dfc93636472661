// What the user does in a ViewerWidget.

#include <QClipboard>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QWheelEvent>
#include <cstdlib>
#include <utility>

#include "opener/viewer/HostKeysMenu.h"
#include "opener/viewer/ViewerWidget.h"

namespace zelvo::opener {

namespace {

/// Buttons as RFB numbers them.
enum Buttons : unsigned {
    left = 1,
    middle = 2,
    right = 4,
    wheelUp = 8,
    wheelDown = 16,
    wheelLeft = 32,
    wheelRight = 64,
};

/// Of a wheel's angle, one click.
constexpr int click = 120;

unsigned buttonsOf(Qt::MouseButtons buttons) {
    return (buttons.testFlag(Qt::LeftButton) ? left : 0U) |
           (buttons.testFlag(Qt::MiddleButton) ? middle : 0U) |
           (buttons.testFlag(Qt::RightButton) ? right : 0U);
}

bool isWayOut(const QKeyEvent& event) {
    return event.key() == Qt::Key_Escape &&
           event.modifiers().testFlags(Qt::ControlModifier | Qt::AltModifier | Qt::ShiftModifier);
}

}  // namespace

void ViewerWidget::adjust() {
    const bool isActive = isActiveWindow();
    const bool sendsNow = sends();
    setAttribute(Qt::WA_InputMethodEnabled, sendsNow);
    keysMenu_->setKeysEnabled(sendsNow);
    showCursor();
    if (connection_)
        connection_->setSharesClipboard(sendsNow && isActive);
    if (isActive)
        offerClipboard();
    const bool grabs = sendsNow && isActive && hasFocus() && isPointerInside_;
    if (std::exchange(grabsKeyboard_, grabs) == grabs)
        return;
    if (grabs) {
        grabKeyboard();
        compositorKeys_.hold(*this);
    } else {
        releaseKeyboard();
        compositorKeys_.letGo();
    }
}

void ViewerWidget::releaseInput() {
    keyboard_.releaseAll();
    if (buttons_ != 0)
        sendPointer(pointer_, 0);
}

void ViewerWidget::leaveByKeys() {
    releaseInput();
    setFullScreen(false);
    isPointerInside_ = false;
    adjust();
    // `focusNextPrevChild` keeps a Tab for the host.
    QAbstractScrollArea::focusNextPrevChild(true);
    emit wayOut();
}

bool ViewerWidget::event(QEvent* event) {
    // Keys that this program would take for itself.
    if (event->type() == QEvent::ShortcutOverride && sends()) {
        event->accept();
        return true;
    }
    return QAbstractScrollArea::event(event);
}

bool ViewerWidget::viewportEvent(QEvent* event) {
    const auto type = event->type();
    // After the way out a click is the way back, also of a pointer that never left.
    if (type == QEvent::Enter || type == QEvent::Leave || type == QEvent::MouseButtonPress) {
        isPointerInside_ = type != QEvent::Leave;
        showPart(hostPointerPart());
        adjust();
    }
    return QAbstractScrollArea::viewportEvent(event);
}

void ViewerWidget::changeEvent(QEvent* event) {
    if (event->type() == QEvent::ActivationChange) {
        if (!isActiveWindow())
            releaseInput();
        adjust();
    }
    QAbstractScrollArea::changeEvent(event);
}

bool ViewerWidget::focusNextPrevChild(bool next) {
    return !sends() && QAbstractScrollArea::focusNextPrevChild(next);
}

void ViewerWidget::focusInEvent(QFocusEvent* event) {
    QAbstractScrollArea::focusInEvent(event);
    adjust();
}

void ViewerWidget::focusOutEvent(QFocusEvent* event) {
    releaseInput();
    QAbstractScrollArea::focusOutEvent(event);
    adjust();
}

void ViewerWidget::hideEvent(QHideEvent* event) {
    releaseInput();
    isPointerInside_ = false;
    QAbstractScrollArea::hideEvent(event);
    adjust();
}

void ViewerWidget::keyPressEvent(QKeyEvent* event) {
    if (isWayOut(*event))
        leaveByKeys();
    else if (sends())
        keyboard_.press(*event);
    else
        QAbstractScrollArea::keyPressEvent(event);
}

void ViewerWidget::keyReleaseEvent(QKeyEvent* event) {
    if (sends())
        keyboard_.release(*event);
    else
        QAbstractScrollArea::keyReleaseEvent(event);
}

void ViewerWidget::inputMethodEvent(QInputMethodEvent* event) {
    if (sends())
        keyboard_.type(event->commitString());
    event->accept();
}

QVariant ViewerWidget::inputMethodQuery(Qt::InputMethodQuery query) const {
    switch (query) {
        case Qt::ImEnabled:
            return sends();
        case Qt::ImHints:
            // The host's fields are not known: nothing is learnt or completed.
            return static_cast<int>(Qt::ImhSensitiveData | Qt::ImhNoPredictiveText);
        case Qt::ImCursorRectangle:
            return QRect(viewport()->mapFromGlobal(QCursor::pos()), QSize(1, 1));
        default:
            return QAbstractScrollArea::inputMethodQuery(query);
    }
}

void ViewerWidget::mouse(const QMouseEvent& event) {
    if (!sends())
        return;
    const auto at = event.position() * ratio();
    const auto buttons = buttonsOf(event.buttons());
    // Beside the picture nothing begins, but what has begun goes on.
    if (buttons_ == 0 && !QRectF(place_.inView()).contains(at))
        return;
    sendPointer(place_.hostPixel(at), buttons);
}

void ViewerWidget::sendPointer(QPoint at, unsigned buttons) {
    if (!connection_ || (at == pointer_ && buttons == buttons_))
        return;
    pointer_ = at;
    buttons_ = buttons;
    connection_->pointer(at.x(), at.y(), static_cast<std::uint8_t>(buttons));
}

void ViewerWidget::wheelEvent(QWheelEvent* event) {
    if (!sends())
        return QAbstractScrollArea::wheelEvent(event);
    const auto at = place_.hostPixel(event->position() * ratio());
    wheel_ += event->angleDelta();
    auto turn = [&](int& angle, unsigned forward, unsigned backward) {
        for (; std::abs(angle) >= click; angle += angle > 0 ? -click : click) {
            const auto held = buttons_;
            sendPointer(at, held | (angle > 0 ? forward : backward));
            sendPointer(at, held);
        }
    };
    turn(wheel_.ry(), wheelUp, wheelDown);
    turn(wheel_.rx(), wheelLeft, wheelRight);
    event->accept();
}

void ViewerWidget::visit(const HostCorner& corner) {
    releaseInput();
    if (!sends())
        return;
    using Place = HostCorner::Place;
    const bool isRight = corner.place == Place::TopRight || corner.place == Place::BottomRight;
    const bool isBottom = corner.place == Place::BottomLeft || corner.place == Place::BottomRight;
    const QPoint end(isRight ? pictureSize_.width() - 1 : 0,
                     isBottom ? pictureSize_.height() - 1 : 0);
    const QPoint middle(pictureSize_.width() / 2, pictureSize_.height() / 2);
    keyboard_.strike(corner.modifiers, [&] {
        // Corners notice a pointer that comes, not one that is there.
        sendPointer((end * 3 + middle) / 4, 0);
        sendPointer(end, 0);
    });
}

void ViewerWidget::offerClipboard() {
    if (!hasNewText_ || !sends() || !isActiveWindow())
        return;
    hasNewText_ = false;
    const auto text = QGuiApplication::clipboard()->text();
    if (!text.isEmpty())
        connection_->setClipboard(text.toStdString());
}

void ViewerWidget::takeClipboard(const QString& text) {
    if (!sends() || !isActiveWindow())
        return;
    hostText_ = text;
    hasNewText_ = false;
    QGuiApplication::clipboard()->setText(text);
}

}  // namespace zelvo::opener
