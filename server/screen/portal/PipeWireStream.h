#pragma once

#include <pipewire/pipewire.h>
#include <spa/buffer/meta.h>
#include <spa/param/video/format-utils.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>

#include "server/screen/Screen.h"
#include "server/screen/portal/PipeWireBuffer.h"

namespace zelvo::server {

/// The frames of one monitor. Within turns of the loop that its core belongs to.
class PipeWireStream {
  public:
    struct Handlers {
        /// There is a new frame, or one of another size will come.
        std::function<void()> frameCame;
        std::function<void(const Cursor&)> cursorChanged;
        /// In pixels of the frame.
        std::function<void(Point)> cursorMoved;
        std::function<void()> ended;
    };

    PipeWireStream(pw_core* core, std::uint32_t node, Handlers handlers);
    PipeWireStream(const PipeWireStream&) = delete;
    PipeWireStream& operator=(const PipeWireStream&) = delete;
    ~PipeWireStream();

    /// An inactive one costs nothing. Active at first.
    void setActive(bool isActive);
    /// The newest frame, where there is one that has not been let go.
    std::optional<Frame> frame();
    void letGo();

  private:
    using Age = std::chrono::nanoseconds;

    void open();
    void close();
    void stateChanged(pw_stream_state state);
    void formatChanged(const spa_pod* format);
    void removeBuffer(pw_buffer* buffer);
    /// On PipeWire's own thread.
    void takeBuffers();
    void readAge(const spa_buffer& buffer);
    void tell();
    void openAnewAfter(std::chrono::milliseconds time);
    bool holdsFrame();
    void openAnew();
    void giveBack(pw_buffer*& buffer);

    static const pw_stream_events events_;

    const Handlers handlers_;
    pw_core* const core_;
    const std::uint32_t node_;
    pw_loop* const loop_;
    /// Wakes up the loop's thread, for `tell`.
    spa_source* news_ = nullptr;
    spa_source* timer_ = nullptr;
    int attempts_ = 0;
    bool isFirst_ = true;
    bool isClosing_ = false;
    bool isActive_ = true;
    spa_hook listener_{};
    pw_stream* stream_ = nullptr;
    /// Of the buffers that are there, and of those that will be.
    spa_video_info_raw format_{};
    spa_video_info_raw nextFormat_{};
    /// What `frame` has handed out.
    pw_buffer* shown_ = nullptr;

    /// For what follows, and for giving buffers back.
    std::mutex mutex_;
    pw_buffer* newest_ = nullptr;
    std::optional<Cursor> newCursor_;
    std::optional<Point> newPosition_;
    /// A frame has come, which is late or is not.
    std::optional<bool> newIsLate_;
    /// Of all frames, however often the stream was opened.
    Age leastAge_ = Age::max();
};

}  // namespace zelvo::server
