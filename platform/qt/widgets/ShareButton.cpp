#include "platform/qt/widgets/ShareButton.h"

#include <QMouseEvent>
#include <QPainter>
#include <QStyleOption>

namespace zelvo::platform {

namespace {

constexpr double CornerRadius = 9;

}  // namespace

ShareButton::ShareButton(QWidget* parent) : QPushButton(parent) {
    setAutoDefault(true);
    setAttribute(Qt::WA_Hover);
    QFont bold = font();
    bold.setBold(true);
    setFont(bold);
    connect(this, &QPushButton::clicked, this, [this] { sendAction(); });
}

Rect ShareButton::bounds() const {
    return {0, 0, static_cast<double>(width()), static_cast<double>(height())};
}

QSize ShareButton::sizeHint() const {
    auto metrics = fontMetrics();
    QString caption = QString(text()).remove('&');
    return {metrics.horizontalAdvance(caption) + 4 * metrics.height(), metrics.height() * 11 / 4};
}

void ShareButton::mousePressEvent(QMouseEvent* event) {
    if (mask_ == EventMask::LeftMouseDown && event->button() == Qt::LeftButton) {
        event->accept();
        sendAction();
        return;
    }
    QPushButton::mousePressEvent(event);
}

void ShareButton::mouseReleaseEvent(QMouseEvent* event) {
    // The press has already sent the action.
    if (mask_ == EventMask::LeftMouseDown && event->button() == Qt::LeftButton)
        event->accept();
    else
        QPushButton::mouseReleaseEvent(event);
}

void ShareButton::sendAction() {
    if (action_)
        action_();
}

void ShareButton::paintEvent(QPaintEvent*) {
    QStyleOptionButton option;
    initStyleOption(&option);
    auto group = isEnabled() ? QPalette::Active : QPalette::Disabled;
    QColor fill = palette().color(QPalette::Active, QPalette::Highlight);
    QColor text = palette().color(QPalette::Active, QPalette::HighlightedText);
    if (!isEnabled()) {
        fill = palette().color(QPalette::Active, QPalette::WindowText);
        fill.setAlphaF(0.08F);
        text = palette().color(group, QPalette::WindowText);
    } else if (option.state & QStyle::State_Sunken) {
        fill = fill.darker(120);
    } else if (option.state & QStyle::State_MouseOver) {
        fill = fill.lighter(110);
    }

    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(fill);
    QRectF body = QRectF(rect()).adjusted(3, 3, -3, -3);
    painter.drawRoundedRect(body, CornerRadius - 3, CornerRadius - 3);
    if (hasFocus()) {
        QColor ring = palette().color(QPalette::Active, QPalette::Highlight);
        ring.setAlphaF(0.55F);
        painter.setPen(QPen(ring, 2));
        painter.setBrush(Qt::NoBrush);
        painter.drawRoundedRect(QRectF(rect()).adjusted(1, 1, -1, -1), CornerRadius - 1,
                                CornerRadius - 1);
    }
    painter.setPen(text);
    int mnemonic = style()->styleHint(QStyle::SH_UnderlineShortcut, &option, this)
                       ? Qt::TextShowMnemonic
                       : Qt::TextHideMnemonic;
    painter.drawText(rect(), Qt::AlignCenter | mnemonic, this->text());
}

}  // namespace zelvo::platform
