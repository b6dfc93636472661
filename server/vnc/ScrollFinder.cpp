#include "server/vnc/ScrollFinder.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace zelvo::server {

namespace {

constexpr int columnWidth = 64;
/// Anything smaller is drawn sooner than it is found.
constexpr int leastRows = 64;
constexpr int leastArea = leastRows * columnWidth * 4;
/// Enough of them say what all would.
constexpr int everySoManyColumns = 3;
constexpr int leastVotes = 24;

int columnsOf(int width) {
    return (width + columnWidth - 1) / columnWidth;
}

/// Different pixels have different ones, as good as always.
std::uint64_t fingerprint(const std::uint32_t* pixels, int count) {
    // Side by side, since each step waits for the one before.
    std::array<std::uint64_t, 4> lanes{1, 2, 3, 4};
    auto add = [](std::uint64_t& lane, std::uint64_t value) {
        lane = (lane ^ value) * 0x9E37'79B9'7F4A'7C15U;
        lane ^= lane >> 32U;
    };
    int i = 0;
    for (; i + 8 <= count; i += 8) {
        std::array<std::uint64_t, 4> values;
        std::memcpy(values.data(), pixels + i, sizeof values);
        for (std::size_t lane = 0; lane < lanes.size(); ++lane)
            add(lanes[lane], values[lane]);
    }
    for (; i < count; ++i)
        add(lanes[0], pixels[i]);
    for (std::size_t lane = 1; lane < lanes.size(); ++lane)
        add(lanes[0], lanes[lane]);
    return lanes[0];
}

}  // namespace

std::optional<ScrollFinder::Scroll> ScrollFinder::find(std::span<const std::uint32_t> pixels,
                                                       Size size,
                                                       const std::vector<Rectangle>& changed) {
    if (size != size_) {
        size_ = size;
        cells_.assign(at(columnsOf(size.width), 0), 0);
        read(pixels, {0, 0, size.width, size.height});
        return std::nullopt;
    }
    int area = 0;
    for (const auto& part : changed)
        area += part.width * part.height;
    const bool isLarge = area >= leastArea;
    if (isLarge)
        before_ = cells_;
    Rectangle cells{columnsOf(size.width), size.height, 0, 0};
    int right = 0;
    int bottom = 0;
    for (const auto& part : changed) {
        read(pixels, part);
        cells.x = std::min(cells.x, part.x / columnWidth);
        cells.y = std::min(cells.y, part.y);
        right = std::max(right, columnsOf(part.x + part.width));
        bottom = std::max(bottom, part.y + part.height);
    }
    cells.width = right - cells.x;
    cells.height = bottom - cells.y;
    if (!isLarge)
        return std::nullopt;
    const int from = commonShift(cells);
    if (from == 0)
        return std::nullopt;
    const auto scroll = largest(cells, from);
    if (scroll.target.width * scroll.target.height < leastArea)
        return std::nullopt;
    return scroll;
}

void ScrollFinder::read(std::span<const std::uint32_t> pixels, const Rectangle& part) {
    // In the order in which they lie in memory.
    for (int row = part.y; row < part.y + part.height; ++row) {
        const auto* line = pixels.data() + static_cast<std::ptrdiff_t>(row) * size_.width;
        for (int column = part.x / columnWidth; column < columnsOf(part.x + part.width); ++column) {
            const int left = column * columnWidth;
            cells_[at(column, row)] =
                fingerprint(line + left, std::min(columnWidth, size_.width - left));
        }
    }
}

/// By how many rows most of what can be told apart has moved; 0 where nothing has.
int ScrollFinder::commonShift(const Rectangle& cells) const {
    std::vector<int> votes(static_cast<std::size_t>(size_.height) * 2);
    std::vector<std::pair<std::uint64_t, int>> rows;
    for (int column = cells.x; column < cells.x + cells.width; column += everySoManyColumns) {
        rows.clear();
        for (int row = cells.y; row < cells.y + cells.height; ++row)
            rows.emplace_back(before_[at(column, row)], row);
        std::sort(rows.begin(), rows.end());
        for (int row = cells.y; row < cells.y + cells.height; ++row) {
            const auto cell = cells_[at(column, row)];
            if (cell == before_[at(column, row)])
                continue;
            const auto found = std::lower_bound(rows.begin(), rows.end(), std::pair(cell, 0));
            // One of several, such as blank ones, tells nothing.
            if (found == rows.end() || found->first != cell ||
                (found + 1 != rows.end() && found[1].first == cell))
                continue;
            ++votes[static_cast<std::size_t>(found->second - row + size_.height)];
        }
    }
    const auto most = std::max_element(votes.begin(), votes.end());
    return *most < leastVotes ? 0 : static_cast<int>(most - votes.begin()) - size_.height;
}

/// The largest rectangle that has moved like that, without those that lie in few columns.
ScrollFinder::Scroll ScrollFinder::largest(const Rectangle& cells, int from) const {
    using Rows = std::pair<int, int>;
    std::vector<Rows> longest(static_cast<std::size_t>(cells.width));
    const int first = std::max(cells.y, -from);
    const int end = std::min(cells.y + cells.height, size_.height - from);
    for (int i = 0; i < cells.width; ++i) {
        auto& run = longest[static_cast<std::size_t>(i)];
        int begin = first;
        for (int row = first; row < end; ++row) {
            if (cells_[at(cells.x + i, row)] != before_[at(cells.x + i, row + from)])
                begin = row + 1;
            else if (row + 1 - begin > run.second - run.first)
                run = {begin, row + 1};
        }
    }
    Scroll best{{}, from};
    for (int left = 0; left < cells.width; ++left) {
        Rows common{0, size_.height};
        for (int right = left; right < cells.width; ++right) {
            const auto& run = longest[static_cast<std::size_t>(right)];
            common = {std::max(common.first, run.first), std::min(common.second, run.second)};
            const int height = common.second - common.first;
            if (height < leastRows)
                break;
            const int x = (cells.x + left) * columnWidth;
            const int width = std::min((cells.x + right + 1) * columnWidth, size_.width) - x;
            if (width * height > best.target.width * best.target.height)
                best.target = {x, common.first, width, height};
        }
    }
    return best;
}

}  // namespace zelvo::server
