#include "snapshot/Utf8.h"

namespace zelvo {

std::size_t utf8SequenceLength(std::string_view text) {
    auto byte = [&text](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u;
    };
    auto between = [&byte](std::size_t i, unsigned low, unsigned high) {
        return byte(i) >= low && byte(i) <= high;
    };
    auto tail = [&between](std::size_t i) { return between(i, 0x80, 0xBF); };

    if (text.empty())
        return 0;
    if (between(0, 0, 0x7F))
        return 1;
    if (between(0, 0xC2, 0xDF))
        return tail(1) ? 2 : 0;
    if (between(0, 0xE0, 0xEF)) {
        // The second byte's range shuts out longer forms than needed and surrogates.
        bool second = between(1, byte(0) == 0xE0 ? 0xA0 : 0x80, byte(0) == 0xED ? 0x9F : 0xBF);
        return second && tail(2) ? 3 : 0;
    }
    if (between(0, 0xF0, 0xF4)) {
        bool second = between(1, byte(0) == 0xF0 ? 0x90 : 0x80, byte(0) == 0xF4 ? 0x8F : 0xBF);
        return second && tail(2) && tail(3) ? 4 : 0;
    }
    return 0;
}

}  // namespace zelvo
