#include "server/screen/portal/PipeWireBuffer.h"

#include <spa/buffer/meta.h>

#include <cstring>

namespace zelvo::server {

namespace {

bool isRedFirst(std::uint32_t format) {
    return format == SPA_VIDEO_FORMAT_RGBx || format == SPA_VIDEO_FORMAT_RGBA;
}

std::uint32_t withRedAndBlueSwapped(std::uint32_t pixel) {
    return (pixel & 0xFF00FF00U) | (pixel & 0xFFU) << 16U | (pixel >> 16U & 0xFFU);
}

/// None where a side is nothing or too long.
std::optional<Size> sizeOf(const spa_rectangle& rectangle, int longestSide) {
    const auto longest = static_cast<std::uint32_t>(longestSide);
    if (rectangle.width == 0 || rectangle.height == 0 || rectangle.width > longest ||
        rectangle.height > longest)
        return std::nullopt;
    return Size{static_cast<int>(rectangle.width), static_cast<int>(rectangle.height)};
}

/// Whether as many rows as the size has lie in the room.
bool fits(Size size, std::size_t stride, std::size_t room) {
    const auto row = static_cast<std::size_t>(size.width) * 4;
    return stride >= row && stride * static_cast<std::size_t>(size.height - 1) + row <= room;
}

/// The picture at an offset of what is said of the pointer, which has room for so many bytes.
std::optional<Cursor> cursorAt(const std::byte* said, std::size_t offset, std::size_t room,
                               Point hotSpot) {
    // Without one it is as before.
    if (offset < sizeof(spa_meta_cursor) || offset + sizeof(spa_meta_bitmap) > room)
        return std::nullopt;
    // The compositor may write there at any time: what was looked at is what is used.
    spa_meta_bitmap bitmap{};
    std::memcpy(&bitmap, said + offset, sizeof bitmap);
    // A program has hidden it.
    if (bitmap.size.width == 0 && bitmap.size.height == 0)
        return Cursor{{1, 1}, {0, 0}, {0}};
    const auto size = sizeOf(bitmap.size, longestCursorSide);
    const std::size_t before = offset + bitmap.offset;
    if (!size || bitmap.offset < sizeof bitmap || bitmap.stride < 0 || before > room)
        return std::nullopt;
    const auto stride = static_cast<std::size_t>(bitmap.stride);
    if (!fits(*size, stride, room - before))
        return std::nullopt;
    const auto width = static_cast<std::size_t>(size->width);
    const auto height = static_cast<std::size_t>(size->height);
    Cursor picture{*size, hotSpot, std::vector<std::uint32_t>(width * height)};
    for (std::size_t y = 0; y < height; ++y)
        std::memcpy(picture.pixels.data() + y * width, said + before + y * stride, width * 4);
    if (isRedFirst(bitmap.format)) {
        for (auto& pixel : picture.pixels)
            pixel = withRedAndBlueSwapped(pixel);
    }
    return picture;
}

}  // namespace

bool hasPicture(const spa_buffer& buffer) {
    if (buffer.n_datas == 0)
        return false;
    const auto& data = buffer.datas[0];
    const auto* header = static_cast<const spa_meta_header*>(
        spa_buffer_find_meta_data(&buffer, SPA_META_Header, sizeof(spa_meta_header)));
    // What PipeWire could not map has no address, a size of nothing comes with a pointer alone, and
    // what is corrupt is not to be shown.
    return data.data && data.chunk->size > 0 && !(data.chunk->flags & SPA_CHUNK_FLAG_CORRUPTED) &&
           !(header && header->flags & SPA_META_HEADER_FLAG_CORRUPTED);
}

std::optional<Frame> pictureIn(const spa_buffer& buffer, const spa_video_info_raw& format) {
    const auto& data = buffer.datas[0];
    const auto chunk = *data.chunk;
    const auto size = sizeOf(format.size, longestFrameSide);
    if (!size || chunk.stride < 0 || chunk.offset > data.maxsize)
        return std::nullopt;
    // Some leave it out.
    const auto stride = chunk.stride > 0 ? static_cast<std::size_t>(chunk.stride)
                                         : static_cast<std::size_t>(size->width) * 4;
    if (!fits(*size, stride, data.maxsize - chunk.offset))
        return std::nullopt;
    return Frame{static_cast<const std::byte*>(data.data) + chunk.offset, stride, *size,
                 isRedFirst(format.format)};
}

std::optional<PointerNews> pointerIn(const spa_buffer& buffer) {
    const auto* meta = spa_buffer_find_meta(&buffer, SPA_META_Cursor);
    if (!meta || !meta->data || meta->size < sizeof(spa_meta_cursor))
        return std::nullopt;
    spa_meta_cursor cursor{};
    std::memcpy(&cursor, meta->data, sizeof cursor);
    if (cursor.id == 0)
        return std::nullopt;
    return PointerNews{{cursor.position.x, cursor.position.y},
                       cursorAt(static_cast<const std::byte*>(meta->data), cursor.bitmap_offset,
                                meta->size, {cursor.hotspot.x, cursor.hotspot.y})};
}

}  // namespace zelvo::server
