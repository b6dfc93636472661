#include "sealing/HelperName.h"

#include <algorithm>
#include <array>
#include <span>

#include "platform/linux/base/TextEncoding.h"

namespace zelvo::sealing {

namespace {

using platform::firstCodePoint;

struct Range {
    char32_t first, last;
};

bool isIn(std::span<const Range> ranges, char32_t character) {
    return std::any_of(ranges.begin(), ranges.end(), [&](const Range& range) {
        return character >= range.first && character <= range.last;
    });
}

/// U+0020 is the one that a name has.
constexpr std::array spaces{Range{0x0009, 0x000D}, Range{0x0020, 0x0020}, Range{0x0085, 0x0085},
                            Range{0x00A0, 0x00A0}, Range{0x1680, 0x1680}, Range{0x2000, 0x200A},
                            Range{0x2028, 0x2029}, Range{0x202F, 0x202F}, Range{0x205F, 0x205F},
                            Range{0x3000, 0x3000}};

/// Controls, what has no shape of its own, what turns the writing, private use and what is none.
constexpr std::array unseen{
    Range{0x0000, 0x001F},   Range{0x007F, 0x009F},   Range{0x00AD, 0x00AD},
    Range{0x034F, 0x034F},   Range{0x061C, 0x061C},   Range{0x115F, 0x1160},
    Range{0x17B4, 0x17B5},   Range{0x180B, 0x180F},   Range{0x200B, 0x200F},
    Range{0x2028, 0x202E},   Range{0x2060, 0x206F},   Range{0x2800, 0x2800},
    Range{0x3164, 0x3164},   Range{0xE000, 0xF8FF},   Range{0xFDD0, 0xFDEF},
    Range{0xFE00, 0xFE0F},   Range{0xFEFF, 0xFEFF},   Range{0xFFA0, 0xFFA0},
    Range{0xFFF0, 0xFFFF},   Range{0x13430, 0x1345F}, Range{0x1BCA0, 0x1BCA3},
    Range{0x1D173, 0x1D17A}, Range{0xE0000, 0x10FFFF}};

/// Marks that stack on the letter before.
constexpr std::array marks{Range{0x0300, 0x036F}, Range{0x0483, 0x0489}, Range{0x0E34, 0x0E3A},
                           Range{0x0E47, 0x0E4E}, Range{0x1AB0, 0x1AFF}, Range{0x1DC0, 0x1DFF},
                           Range{0x20D0, 0x20FF}, Range{0xFE20, 0xFE2F}};
constexpr int mostMarks = 2;

}  // namespace

std::string asHelperName(std::string_view text) {
    std::string name;
    std::size_t characters = 0;
    bool spaceWaits = false;
    int marksBefore = mostMarks;  // Nothing to stand on yet.
    while (!text.empty()) {
        const auto next = firstCodePoint(text);
        const auto taken = text.substr(0, next ? next->length : 1);
        text.remove_prefix(taken.size());
        if (next && isIn(spaces, next->value)) {
            spaceWaits = !name.empty();
            marksBefore = mostMarks;
            continue;
        }
        if (!next || isIn(unseen, next->value))
            continue;
        const bool isMark = isIn(marks, next->value);
        if (isMark && marksBefore == mostMarks)
            continue;
        if (characters + (spaceWaits ? 2 : 1) > longestName)
            break;
        if (spaceWaits)
            name += ' ';
        name += taken;
        characters += spaceWaits ? 2 : 1;
        marksBefore = isMark ? marksBefore + 1 : 0;
        spaceWaits = false;
    }
    return name;
}

bool isHelperName(std::string_view text) {
    return !text.empty() && text.size() <= longestNameInBytes && asHelperName(text) == text;
}

}  // namespace zelvo::sealing
