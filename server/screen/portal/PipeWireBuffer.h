#pragma once

#include <spa/buffer/buffer.h>
#include <spa/param/video/raw.h>

#include <cstddef>
#include <optional>

#include "server/screen/Screen.h"

namespace zelvo::server {

/// Of a picture, in pixels.
constexpr int longestFrameSide = 16384;
/// Compositors ask for room for theirs, and offer none where there is less.
constexpr int longestCursorSide = 1024;

/// A picture as PipeWire hands it over. Stays as it is until it is let go.
struct Frame {
    const std::byte* pixels = nullptr;
    /// Bytes from one row to the next.
    std::size_t stride = 0;
    Size size;
    /// Its red comes before its blue.
    bool isRedFirst = false;
};

/// Where the pointer is.
struct PointerNews {
    /// In pixels of the frame.
    Point position;
    /// What it looks like; none where that is as before.
    std::optional<Cursor> cursor;
};

/// Whether there is a picture that is to be shown: some buffers come with a pointer alone.
bool hasPicture(const spa_buffer& buffer);

/// The picture of a buffer that has one, of so many pixels as the format says; none where not all
/// of it lies in the buffer's memory.
std::optional<Frame> pictureIn(const spa_buffer& buffer, const spa_video_info_raw& format);

/// None where the pointer is elsewhere. A picture of it that is not as its sizes say is left out.
std::optional<PointerNews> pointerIn(const spa_buffer& buffer);

}  // namespace zelvo::server
