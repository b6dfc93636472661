#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "server/screen/Screen.h"
#include "server/screen/portal/PortalSession.h"

namespace zelvo::server {

/// Where monitors of any scale lie in one picture, each in its own pixels: without overlap, though
/// with gaps where their scales differ.
class MonitorLayout {
  public:
    struct Monitor {
        PortalMonitor portal;
        /// Of its frames, in pixels.
        Size pixels;
        /// Of its upper left corner in the picture.
        Point origin;
        /// Pixels for each of its own measure; 0 before there is a frame.
        double scale = 0;
    };
    struct Place {
        const Monitor* monitor;
        /// From its upper left corner, in its pixels.
        Point point;
    };

    explicit MonitorLayout(const std::vector<PortalMonitor>& monitors);

    /// The frames of a monitor have another size now.
    void resize(std::size_t monitor, Size pixels);

    const std::vector<Monitor>& monitors() const { return monitors_; }
    Size size() const { return size_; }
    /// On the monitor that has the point, or is next to it.
    Place place(Point point) const;

  private:
    void arrange();

    std::vector<Monitor> monitors_;
    Size size_{1, 1};
};

}  // namespace zelvo::server
