#include "server/screen/portal/PipeWireBuffer.h"

#include <gtest/gtest.h>
#include <spa/buffer/meta.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <vector>

namespace zelvo::server {
namespace {

TEST(PipeWireBufferTest, HasPicturesThatLieInItsMemoryAlone) {
    // A picture of 4 by 3 in as much memory as it needs, and what differs.
    const struct {
        spa_rectangle size{4, 3};
        std::uint32_t offset = 0;
        std::int32_t stride = 0;
        std::uint32_t memory = 48;
        std::size_t rows = 16;
    } cases[] = {{},
                 {.stride = 20, .memory = 56, .rows = 20},
                 {.stride = 20, .memory = 55, .rows = 0},
                 {.offset = 8, .memory = 56},
                 {.offset = 9, .memory = 56, .rows = 0},
                 {.offset = 57, .memory = 56, .rows = 0},
                 {.offset = UINT_MAX, .rows = 0},
                 {.stride = 15, .rows = 0},
                 {.stride = -16, .rows = 0},
                 {.stride = INT_MAX, .rows = 0},
                 // The room is that of the size before.
                 {.size = {4, 4}, .rows = 0},
                 {.size = {0, 3}, .rows = 0},
                 {.size = {4, 0}, .rows = 0},
                 {.size = {UINT_MAX, UINT_MAX}, .rows = 0},
                 {.size = {1U << 31U, 2}, .rows = 0}};
    for (const auto& [size, offset, stride, memory, rows] : cases) {
        spa_chunk chunk{offset, 48, stride, 0};
        std::vector<char> pixels(memory);
        spa_data data{SPA_DATA_MemFd, 0, -1, 0, memory, pixels.data(), &chunk};
        spa_meta_header header{};
        spa_meta meta{SPA_META_Header, sizeof header, &header};
        const spa_buffer buffer{1, 1, &meta, &data};
        ASSERT_TRUE(hasPicture(buffer));
        spa_video_info_raw format{};
        format.format = SPA_VIDEO_FORMAT_BGRx;
        format.size = size;
        const auto frame = pictureIn(buffer, format);
        EXPECT_EQ(frame ? frame->stride : 0, rows) << offset << " " << stride;
        EXPECT_TRUE(!frame || reinterpret_cast<const char*>(frame->pixels) == &pixels[offset]);
        header.flags = SPA_META_HEADER_FLAG_CORRUPTED;
        EXPECT_FALSE(hasPicture(buffer));
        header.flags = 0;
        chunk.flags = SPA_CHUNK_FLAG_CORRUPTED;
        EXPECT_FALSE(hasPicture(buffer));
        chunk = {};
        EXPECT_FALSE(hasPicture(buffer));
        chunk.size = 48;
        data.data = nullptr;
        EXPECT_FALSE(hasPicture(buffer));
    }
}

TEST(PipeWireBufferTest, HasPointersThatLieInItsMemoryAlone) {
    constexpr std::uint32_t head = sizeof(spa_meta_cursor), bitmap = sizeof(spa_meta_bitmap);
    // One of 2 by 2, and what differs; the width that is read.
    const struct {
        std::uint32_t at = head;
        spa_meta_bitmap bitmap{SPA_VIDEO_FORMAT_RGBA, {2, 2}, 8, sizeof(spa_meta_bitmap)};
        std::uint32_t less = 0;
        int width = 2;
    } cases[] = {{},
                 {.less = 1, .width = 0},
                 {.less = 16 + 1, .width = 0},
                 {.less = 16 + bitmap, .width = 0},
                 {.at = 0, .width = 0},
                 {.at = UINT_MAX - 8, .width = 0},
                 {.bitmap = {SPA_VIDEO_FORMAT_RGBA, {2, 2}, 9, bitmap}, .width = 0},
                 {.bitmap = {SPA_VIDEO_FORMAT_RGBA, {2, 2}, 7, bitmap}, .width = 0},
                 {.bitmap = {SPA_VIDEO_FORMAT_RGBA, {2, 2}, -8, bitmap}, .width = 0},
                 {.bitmap = {SPA_VIDEO_FORMAT_RGBA, {2, 2}, 8, UINT_MAX}, .width = 0},
                 {.bitmap = {SPA_VIDEO_FORMAT_RGBA, {2, 2}, 8, 0}, .width = 0},
                 {.bitmap = {SPA_VIDEO_FORMAT_RGBA, {2, 1U << 31U}, 8, bitmap}, .width = 0},
                 {.bitmap = {SPA_VIDEO_FORMAT_RGBA, {UINT_MAX, 1}, 8, bitmap}, .width = 0},
                 // Hidden: one pixel of nothing.
                 {.bitmap = {SPA_VIDEO_FORMAT_RGBA, {0, 0}, 0, bitmap}, .less = 16, .width = 1}};
    for (const auto& [at, said, less, width] : cases) {
        std::vector<char> memory(head + bitmap + 16 - less, 0x7F);
        spa_meta_cursor cursor{1, 0, {3, 4}, {1, 1}, at};
        std::memcpy(memory.data(), &cursor, head);
        std::memcpy(memory.data() + head, &said,
                    std::min<std::size_t>(bitmap, memory.size() - head));
        spa_meta meta{SPA_META_Cursor, static_cast<std::uint32_t>(memory.size()), memory.data()};
        const spa_buffer buffer{1, 0, &meta, nullptr};
        const auto news = pointerIn(buffer);
        ASSERT_TRUE(news);
        EXPECT_EQ(news->position, (Point{3, 4}));
        EXPECT_EQ(news->cursor ? news->cursor->size.width : 0, width) << at << " " << less;
        EXPECT_TRUE(width != 2 || news->cursor->pixels[3] == 0x7F7F7F7FU);
        EXPECT_FALSE(hasPicture(buffer));
    }
}

}  // namespace
}  // namespace zelvo::server
