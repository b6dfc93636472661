#include "platform/qt/window/QtWindowSystem.h"

#include <QApplication>
#include <QStyle>
#include <algorithm>

namespace zelvo::platform {

Rect QtWindowSystem::contentRectForFrameRect(const Rect& frame, WindowStyle style) const {
    if (style == WindowStyle::Borderless)
        return frame;
    double titleBar = QApplication::style()->pixelMetric(QStyle::PM_TitleBarHeight);
    return {frame.x, frame.y, frame.width, std::max(0.0, frame.height - titleBar)};
}

}  // namespace zelvo::platform
