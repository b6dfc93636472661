#pragma once

#include <pipewire/pipewire.h>
#include <spa/buffer/meta.h>
#include <spa/param/video/format-utils.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>

#include "server/screen/Screen.h"

namespace zelvo::server {

/// A picture as PipeWire hands it over. Stays as it is until it is let go.
struct Frame {
    const std::byte* pixels = nullptr;
    /// Bytes from one row to the next.
    std::size_t stride = 0;
    Size size;
    /// Its red comes before its blue.
    bool isRedFirst = false;
};

/// The frames of one monitor. Within turns of the loop that its core belongs to.
class PipeWireStream {
  public:
    struct Handlers {
        /// There is a new frame, or one of another size will come.
        std::function<void()> frameCame;
        std::function<void(const Cursor&)> cursorChanged;
        /// In pixels of the frame; none where the pointer is elsewhere.
        std::function<void(std::optional<Point>)> cursorMoved;
        std::function<void()> ended;
    };

    PipeWireStream(pw_core* core, std::uint32_t node, Handlers handlers);
    PipeWireStream(const PipeWireStream&) = delete;
    PipeWireStream& operator=(const PipeWireStream&) = delete;
    ~PipeWireStream();

    /// An inactive one costs nothing. Active at first.
    void setActive(bool isActive);
    /// The newest frame, where there is one that has not been let go.
    std::optional<Frame> frame() const;
    void letGo();

  private:
    void stateChanged(pw_stream_state state);
    void formatChanged(const spa_pod* format);
    void takeBuffers();
    void readCursor(const spa_buffer& buffer);
    bool hasPicture(const spa_buffer& buffer) const;

    static const pw_stream_events events_;

    const Handlers handlers_;
    spa_hook listener_{};
    pw_stream* stream_ = nullptr;
    spa_video_info_raw format_{};
    pw_buffer* held_ = nullptr;
};

}  // namespace zelvo::server
