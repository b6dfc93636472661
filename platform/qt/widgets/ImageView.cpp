#include "platform/qt/widgets/ImageView.h"

#include <QPainter>

#include "platform/qt/widgets/Images.h"

namespace zelvo::platform {

void ImageView::setFolder(const QString& folder) {
    folder_ = folder;
    pixmap_ = {};
    update();
}

void ImageView::setImage(const QString& name) {
    image_ = name;
    pixmap_ = {};
    update();
}

void ImageView::paintEvent(QPaintEvent*) {
    if (pixmap_.isNull() || pixmap_.deviceIndependentSize().toSize() != size() ||
        pixmap_.devicePixelRatio() != devicePixelRatio())
        pixmap_ = renderImage(folder_, image_, size(), devicePixelRatio());
    QPainter painter(this);
    if (!pixmap_.isNull()) {
        painter.drawPixmap(0, 0, pixmap_);
    } else if (marksItsPlace_) {
        QColor color = palette().color(QPalette::WindowText);
        color.setAlphaF(0.25F);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(QPen(color, 1.5));
        painter.drawEllipse(QRectF(rect()).adjusted(2.5, 2.5, -2.5, -2.5));
    }
}

}  // namespace zelvo::platform
