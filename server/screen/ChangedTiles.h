#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "server/screen/Screen.h"

namespace zelvo::server {

/// Brings the band of a picture up to date, and adds to `changed` the parts of it that differ from
/// before, by squares of 64 pixels. `row(y, to)` puts the band's row, as pixels are to be, at `to`.
template <typename Row>
void updateTiles(std::span<std::uint32_t> pixels, Size size, const Rectangle& band, Row row,
                 std::vector<Rectangle>& changed) {
    constexpr int tile = 64;
    const int tiles = (band.width + tile - 1) / tile;
    std::vector<char> differs(static_cast<std::size_t>(tiles));
    std::vector<std::uint32_t> line(static_cast<std::size_t>(band.width));
    for (int top = 0; top < band.height; top += tile) {
        const int height = std::min(tile, band.height - top);
        std::fill(differs.begin(), differs.end(), 0);
        for (int y = top; y < top + height; ++y) {
            row(y, line.data());
            auto* old =
                pixels.data() +
                static_cast<std::size_t>(band.y + y) * static_cast<std::size_t>(size.width) +
                band.x;
            for (int i = 0; i < tiles; ++i) {
                const int left = i * tile;
                const auto bytes = static_cast<std::size_t>(std::min(tile, band.width - left)) * 4;
                if (std::memcmp(old + left, line.data() + left, bytes) == 0)
                    continue;
                std::memcpy(old + left, line.data() + left, bytes);
                differs[static_cast<std::size_t>(i)] = 1;
            }
        }
        // Neighbours that differ are one part.
        for (int i = 0; i < tiles; ++i) {
            if (!differs[static_cast<std::size_t>(i)])
                continue;
            int end = i;
            while (end < tiles && differs[static_cast<std::size_t>(end)])
                ++end;
            const int width = std::min(end * tile, band.width) - i * tile;
            changed.push_back({band.x + i * tile, band.y + top, width, height});
            i = end;
        }
    }
}

}  // namespace zelvo::server
