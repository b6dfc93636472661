#include "app/KVView.h"

#include <QPaintEvent>
#include <QPainter>

namespace zelvo {

void KVView::setBackgroundColor(const platform::Color& color) {
    backgroundColor_ = color;
    update();
}

void KVView::paintEvent(QPaintEvent* event) {
    QWidget::paintEvent(event);
    if (!backgroundColor_)
        return;
    const auto& color = *backgroundColor_;
    QPainter(this).fillRect(
        event->rect(),
        QColor::fromRgbF(static_cast<float>(color.red), static_cast<float>(color.green),
                         static_cast<float>(color.blue), static_cast<float>(color.alpha)));
}

}  // namespace zelvo
