#include "platform/qt/widgets/StatePanel.h"

#include <QPainter>

namespace zelvo::platform {

namespace {

const QColor AskingGround(0xFF, 0xC9, 0x4D);
const QColor ConnectedGround(0x1D, 0x5A, 0xA8);

}  // namespace

void StatePanel::setState(const QString& state) {
    state_ = state;
    QPalette colors;
    if (!state.isEmpty())
        colors.setColor(QPalette::WindowText, state == "asking" ? Qt::black : Qt::white);
    setPalette(colors);
    update();
}

void StatePanel::paintEvent(QPaintEvent*) {
    if (state_.isEmpty())
        return;
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(state_ == "asking" ? AskingGround : ConnectedGround);
    painter.drawRoundedRect(QRectF(rect()), 10, 10);
}

}  // namespace zelvo::platform
