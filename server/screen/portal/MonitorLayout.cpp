#include "server/screen/portal/MonitorLayout.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace zelvo::server {

namespace {

int beyond(int value, int from, int length) {
    return std::max({from - value, value - (from + length - 1), 0});
}

}  // namespace

MonitorLayout::MonitorLayout(const std::vector<PortalMonitor>& monitors) {
    for (const auto& monitor : monitors)
        monitors_.push_back({monitor, {}, {}, 0});
}

void MonitorLayout::resize(std::size_t index, Size pixels) {
    auto& monitor = monitors_.at(index);
    monitor.pixels = pixels;
    // Fixed by the first: whoever changes the mode of a monitor leaves its scale alone.
    if (monitor.scale == 0)
        monitor.scale = monitor.portal.size.width > 0
                            ? static_cast<double>(pixels.width) / monitor.portal.size.width
                            : 1;
    arrange();
}

void MonitorLayout::arrange() {
    Point first{std::numeric_limits<int>::max(), std::numeric_limits<int>::max()};
    double scale = 1;
    for (const auto& monitor : monitors_) {
        first = {std::min(first.x, monitor.portal.position.x),
                 std::min(first.y, monitor.portal.position.y)};
        scale = std::max(scale, monitor.scale);
    }
    size_ = {1, 1};
    for (auto& monitor : monitors_) {
        // By the largest scale, so that the pixels of each have room.
        const auto& position = monitor.portal.position;
        monitor.origin = {static_cast<int>(std::lround((position.x - first.x) * scale)),
                          static_cast<int>(std::lround((position.y - first.y) * scale))};
        size_ = {std::max(size_.width, monitor.origin.x + monitor.pixels.width),
                 std::max(size_.height, monitor.origin.y + monitor.pixels.height)};
    }
}

MonitorLayout::Place MonitorLayout::place(Point point) const {
    const auto* nearest = &monitors_.front();
    int least = std::numeric_limits<int>::max();
    for (const auto& monitor : monitors_) {
        const int distance = beyond(point.x, monitor.origin.x, monitor.pixels.width) +
                             beyond(point.y, monitor.origin.y, monitor.pixels.height);
        if (distance < least) {
            least = distance;
            nearest = &monitor;
        }
    }
    return {nearest,
            {std::clamp(point.x - nearest->origin.x, 0, std::max(nearest->pixels.width - 1, 0)),
             std::clamp(point.y - nearest->origin.y, 0, std::max(nearest->pixels.height - 1, 0))}};
}

}  // namespace zelvo::server
