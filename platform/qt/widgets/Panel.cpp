#include "platform/qt/widgets/Panel.h"

#include <QPainter>

namespace zelvo::platform {

void Panel::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QColor line = palette().color(QPalette::WindowText);
    line.setAlphaF(0.10F);
    painter.setPen(line);
    painter.setBrush(palette().color(QPalette::Base));
    painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), 10, 10);
}

}  // namespace zelvo::platform
