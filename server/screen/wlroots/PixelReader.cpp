#include "server/screen/wlroots/PixelReader.h"

#include <wayland-client-protocol.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace zelvo::server {

namespace {

struct Format {
    std::uint32_t name;
    int bytes;
    unsigned red, green, blue;
    unsigned bits;
};
constexpr std::array formats{Format{WL_SHM_FORMAT_XRGB8888, 4, 16, 8, 0, 8},
                             Format{WL_SHM_FORMAT_ARGB8888, 4, 16, 8, 0, 8},
                             Format{WL_SHM_FORMAT_XBGR8888, 4, 0, 8, 16, 8},
                             Format{WL_SHM_FORMAT_ABGR8888, 4, 0, 8, 16, 8},
                             Format{WL_SHM_FORMAT_RGBX8888, 4, 24, 16, 8, 8},
                             Format{WL_SHM_FORMAT_RGBA8888, 4, 24, 16, 8, 8},
                             Format{WL_SHM_FORMAT_BGRX8888, 4, 8, 16, 24, 8},
                             Format{WL_SHM_FORMAT_BGRA8888, 4, 8, 16, 24, 8},
                             Format{WL_SHM_FORMAT_RGB888, 3, 16, 8, 0, 8},
                             Format{WL_SHM_FORMAT_BGR888, 3, 0, 8, 16, 8},
                             Format{WL_SHM_FORMAT_XRGB2101010, 4, 20, 10, 0, 10},
                             Format{WL_SHM_FORMAT_ARGB2101010, 4, 20, 10, 0, 10},
                             Format{WL_SHM_FORMAT_XBGR2101010, 4, 0, 10, 20, 10},
                             Format{WL_SHM_FORMAT_ABGR2101010, 4, 0, 10, 20, 10}};

bool isOnItsSide(int transform) {
    return transform % 2 != 0;
}

/// Where what is looked at lies in the output's own memory, whose size is given as looked at.
Point untransform(Point seen, Size size, int transform) {
    const int fromRight = size.width - 1 - seen.x;
    const int fromBottom = size.height - 1 - seen.y;
    switch (transform) {
        case WL_OUTPUT_TRANSFORM_90:
            return {seen.y, fromRight};
        case WL_OUTPUT_TRANSFORM_180:
            return {fromRight, fromBottom};
        case WL_OUTPUT_TRANSFORM_270:
            return {fromBottom, seen.x};
        case WL_OUTPUT_TRANSFORM_FLIPPED:
            return {fromRight, seen.y};
        case WL_OUTPUT_TRANSFORM_FLIPPED_90:
            return {seen.y, seen.x};
        case WL_OUTPUT_TRANSFORM_FLIPPED_180:
            return {seen.x, fromBottom};
        case WL_OUTPUT_TRANSFORM_FLIPPED_270:
            return {fromBottom, fromRight};
        default:
            return seen;
    }
}

}  // namespace

Size turned(Size size, int transform) {
    return isOnItsSide(transform) ? Size{size.height, size.width} : size;
}

std::optional<PixelReader> PixelReader::make(const PixelLayout& layout) {
    const auto* format = std::find_if(formats.begin(), formats.end(), [&](const auto& known) {
        return known.name == layout.format;
    });
    if (format == formats.end())
        return std::nullopt;
    const auto seen = turned(layout.size, layout.transform);
    auto offset = [&](Point point) {
        auto place = untransform(point, seen, layout.transform);
        if (layout.isUpsideDown)
            place.y = layout.size.height - 1 - place.y;
        return static_cast<std::ptrdiff_t>(place.y) * layout.stride +
               static_cast<std::ptrdiff_t>(place.x) * format->bytes;
    };
    PixelReader reader;
    reader.first_ = layout.data + offset({0, 0});
    reader.right_ = offset({1, 0}) - offset({0, 0});
    reader.down_ = offset({0, 1}) - offset({0, 0});
    reader.bytes_ = format->bytes;
    reader.red_ = format->red;
    reader.green_ = format->green;
    reader.blue_ = format->blue;
    reader.bits_ = format->bits;
    return reader;
}

void PixelReader::read(Point from, int count, std::uint32_t* to) const {
    const auto* pixel = first_ + from.x * right_ + from.y * down_;
    if (right_ == 4 && red_ == 16 && green_ == 8 && blue_ == 0) {
        // Nearly every output is like this: two at once.
        constexpr std::uint64_t colours = 0x00FF'FFFF'00FF'FFFF;
        for (; count >= 2; count -= 2, pixel += 8, to += 2) {
            std::uint64_t two = 0;
            std::memcpy(&two, pixel, sizeof two);
            two &= colours;
            std::memcpy(to, &two, sizeof two);
        }
    }
    for (int i = 0; i < count; ++i, pixel += right_) {
        std::uint32_t value = 0;
        std::memcpy(&value, pixel, static_cast<std::size_t>(bytes_));
        auto colour = [&](unsigned shift) { return value >> (shift + bits_ - 8) & 0xFFU; };
        to[i] = colour(red_) << 16U | colour(green_) << 8U | colour(blue_);
    }
}

}  // namespace zelvo::server
