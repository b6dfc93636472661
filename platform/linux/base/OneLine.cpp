#include "platform/linux/base/OneLine.h"

#include "platform/linux/base/TextEncoding.h"

namespace zelvo::platform {

namespace {

void appendEscaped(std::string& line, unsigned char byte) {
    constexpr std::string_view digits = "0123456789abcdef";
    switch (byte) {
        case '\n':
            line += "\\n";
            break;
        case '\r':
            line += "\\r";
            break;
        case '\t':
            line += "\\t";
            break;
        default:
            line += "\\x";
            line += digits[byte >> 4];
            line += digits[byte & 0xF];
    }
}

}  // namespace

std::string oneLine(std::string_view text) {
    if (text.ends_with('\n'))
        text.remove_suffix(1);
    std::string line;
    line.reserve(text.size() + 1);
    while (!text.empty()) {
        auto length = utf8SequenceLength(text);
        auto first = static_cast<unsigned char>(text[0]);
        // 0xC2 leads the second block of control characters, U+0080 to U+009F.
        bool isControl =
            first < 0x20 || first == 0x7F ||
            (length == 2 && first == 0xC2 && static_cast<unsigned char>(text[1]) < 0xA0);
        if (length == 0 || isControl) {
            for (auto byte : text.substr(0, length == 0 ? 1 : length))
                appendEscaped(line, static_cast<unsigned char>(byte));
        } else {
            line += text.substr(0, length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return line;
}

}  // namespace zelvo::platform
