#pragma once

#include <QPixmap>
#include <QSize>
#include <QString>

namespace zelvo::platform {

/// The image NAME.svg of the folder, drawn at the size in device-independent pixels; null when
/// there is no such image.
QPixmap renderImage(const QString& folder, const QString& name, QSize size, qreal devicePixelRatio);

}  // namespace zelvo::platform
