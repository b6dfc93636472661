#include "platform/qt/ImageView.h"

#include <QPainter>

#include "platform/qt/Images.h"

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
    if (!pixmap_.isNull())
        QPainter(this).drawPixmap(0, 0, pixmap_);
}

}  // namespace zelvo::platform
