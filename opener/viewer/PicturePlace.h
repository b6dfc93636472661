#pragma once

#include <QPoint>
#include <QPointF>
#include <QRect>
#include <QSize>

namespace zelvo::opener {

/// Where a host's picture lies in the view. Places in the view are in pixels of the device.
class PicturePlace {
  public:
    PicturePlace() = default;
    /// As large as the view allows, in its middle.
    static PicturePlace fitting(QSize picture, QSize view);
    /// Pixel by pixel, in its middle where there is room, else moved by `offset`.
    static PicturePlace actual(QSize picture, QSize view, QPoint offset);

    const QRect& inView() const { return inView_; }
    bool isScaled() const { return inView_.size() != picture_; }
    /// Of the host's pixels the one that is shown there, or the nearest.
    QPoint hostPixel(QPointF place) const;
    /// What shows this part of the picture, and what its pixels shine into.
    QRect viewPart(const QRect& part) const;

  private:
    PicturePlace(QSize picture, QRect inView) : picture_(picture), inView_(inView) {}

    QSize picture_;
    QRect inView_;
};

}  // namespace zelvo::opener
