#include "opener/viewer/PicturePlace.h"

#include <algorithm>
#include <cmath>

namespace zelvo::opener {

PicturePlace PicturePlace::fitting(QSize picture, QSize view) {
    auto size = picture.scaled(view, Qt::KeepAspectRatio).expandedTo({1, 1});
    QRect inView({}, size);
    inView.moveTopLeft({(view.width() - size.width()) / 2, (view.height() - size.height()) / 2});
    return {picture, inView};
}

PicturePlace PicturePlace::actual(QSize picture, QSize view, QPoint offset) {
    auto start = [](int shown, int room, int moved) {
        return shown < room ? (room - shown) / 2 : -moved;
    };
    return {picture, QRect({start(picture.width(), view.width(), offset.x()),
                            start(picture.height(), view.height(), offset.y())},
                           picture)};
}

QPoint PicturePlace::hostPixel(QPointF place) const {
    auto along = [](double at, int begin, int shown, int size) {
        const auto pixel = std::floor((at - begin) * size / std::max(shown, 1));
        return static_cast<int>(std::clamp(pixel, 0.0, std::max(size - 1, 0) * 1.0));
    };
    return {along(place.x(), inView_.x(), inView_.width(), picture_.width()),
            along(place.y(), inView_.y(), inView_.height(), picture_.height())};
}

QRect PicturePlace::viewPart(const QRect& part) const {
    if (!isScaled())
        return part.translated(inView_.topLeft());
    const double across = static_cast<double>(inView_.width()) / picture_.width();
    const double down = static_cast<double>(inView_.height()) / picture_.height();
    const int shine = static_cast<int>(std::ceil(std::max({across, down, 1.0})));
    return QRectF(inView_.x() + part.x() * across, inView_.y() + part.y() * down,
                  part.width() * across, part.height() * down)
        .toAlignedRect()
        .adjusted(-shine, -shine, shine, shine);
}

}  // namespace zelvo::opener
