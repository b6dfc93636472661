#include "server/vnc/ScrollFinder.h"

#include <gtest/gtest.h>

#include <random>

#include "server/screen/ChangedTiles.h"

namespace zelvo::server {

TEST(ScrollFinder, FindsWhatHasMovedAndNothingElse) {
    constexpr Size size{700, 500};
    // The page that scrolls, with blank rows between its lines, and what is around it.
    const struct {
        Rectangle page;
        int from;
        bool isFound;
    } cases[] = {
        {{0, 0, 700, 500}, 17, true},     {{0, 0, 700, 500}, -3, true},
        {{128, 40, 448, 400}, 90, true},  {{100, 40, 448, 400}, -20, true},
        {{0, 100, 128, 100}, 10, false},  {{0, 0, 700, 500}, 480, false},
        {{192, 0, 508, 500}, 499, false},
    };
    std::minstd_rand random;
    std::vector<std::uint32_t> pixels(size.width * size.height, 0xFFFFFF);
    ScrollFinder finder;
    finder.find(pixels, size, {});
    for (const auto& [page, from, isFound] : cases) {
        auto draw = [&, &page = page](std::vector<std::uint32_t>& picture, int y) {
            for (int x = page.x; x < page.x + page.width; ++x)
                picture[y * size.width + x] = y % 20 < 5 ? 0xFFFFFF : random() & 0xFFFFFFU;
        };
        auto next = pixels;
        for (int y = 0; y < size.height; ++y)
            draw(next, y);
        auto change = [&] {
            std::vector<Rectangle> changed;
            updateTiles(
                pixels, size, {0, 0, size.width, size.height},
                [&](int y, auto* to) { std::copy_n(&next[y * size.width], size.width, to); },
                changed);
            return finder.find(pixels, size, changed);
        };
        EXPECT_FALSE(change()) << "nothing has moved";
        const auto before = next;
        for (int y = page.y; y < page.y + page.height; ++y) {
            if (y + from < page.y || y + from >= page.y + page.height)
                draw(next, y);
            else
                std::copy_n(&before[(y + from) * size.width + page.x], page.width,
                            &next[y * size.width + page.x]);
        }
        const auto found = change();
        ASSERT_EQ(found.has_value(), isFound) << from;
        if (!found)
            continue;
        EXPECT_EQ(found->from, from);
        const auto& target = found->target;
        EXPECT_GE(target.width * target.height,
                  (page.width - 128) * (page.height - std::abs(from)));
        for (int y = target.y; y < target.y + target.height; ++y)
            ASSERT_TRUE(std::equal(&next[y * size.width + target.x],
                                   &next[y * size.width + target.x] + target.width,
                                   &before[(y + from) * size.width + target.x]))
                << y;
    }
}

}  // namespace zelvo::server
