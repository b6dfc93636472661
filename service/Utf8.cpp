#include "service/Utf8.h"

namespace zelvo::service {

std::optional<CodePoint> firstCodePoint(std::string_view text) {
    if (text.empty())
        return std::nullopt;
    auto lead = static_cast<unsigned char>(text.front());
    if (lead < 0x80)
        return CodePoint{lead, 1};
    std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length)
        return std::nullopt;
    char32_t value = lead & (0x7Fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        auto next = static_cast<unsigned char>(text[i]);
        if ((next & 0xC0) != 0x80)
            return std::nullopt;
        value = value << 6 | (next & 0x3Fu);
    }
    constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (value < smallest[length] || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
        return std::nullopt;
    return CodePoint{value, length};
}

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        auto character = firstCodePoint(text);
        if (!character)
            return false;
        text.remove_prefix(character->length);
    }
    return true;
}

}  // namespace zelvo::service
