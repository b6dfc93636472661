#include "platform/qt/widgets/Images.h"

#include <QFile>
#include <QPainter>
#include <QSvgRenderer>

namespace zelvo::platform {

// Asked of the renderer itself: icons by name would load plug-ins and scan the theme's folders.
QPixmap renderImage(const QString& folder, const QString& name, QSize size,
                    qreal devicePixelRatio) {
    QString path = folder + '/' + name + ".svg";
    if (name.isEmpty() || !QFile::exists(path))
        return {};
    QSvgRenderer renderer(path);
    if (!renderer.isValid())
        return {};
    renderer.setAspectRatioMode(Qt::KeepAspectRatio);
    QPixmap pixmap(size * devicePixelRatio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    renderer.render(&painter);
    painter.end();
    pixmap.setDevicePixelRatio(devicePixelRatio);
    return pixmap;
}

}  // namespace zelvo::platform
