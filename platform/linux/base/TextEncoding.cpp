#include "platform/linux/base/TextEncoding.h"

#include <cstdint>

namespace zelvo::platform {

namespace {

bool isSurrogate(char32_t unit) {
    return unit >= 0xD800 && unit <= 0xDFFF;
}

std::optional<std::string> decodeUtf16(std::span<const std::byte> bytes, bool bigEndian) {
    if (bytes.size() % 2 != 0)
        return std::nullopt;
    auto unitAt = [&](std::size_t at) {
        auto first = std::to_integer<char32_t>(bytes[at]);
        auto second = std::to_integer<char32_t>(bytes[at + 1]);
        return bigEndian ? first << 8 | second : second << 8 | first;
    };
    std::string text;
    text.reserve(bytes.size());
    for (std::size_t at = 0; at < bytes.size(); at += 2) {
        auto unit = unitAt(at);
        if (isSurrogate(unit)) {
            if (unit >= 0xDC00 || at + 4 > bytes.size())
                return std::nullopt;
            auto low = unitAt(at + 2);
            if (low < 0xDC00 || low > 0xDFFF)
                return std::nullopt;
            unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
            at += 2;
        }
        appendUtf8(text, unit);
    }
    return text;
}

}  // namespace

void appendUtf8(std::string& text, char32_t codePoint) {
    if (isSurrogate(codePoint) || codePoint > 0x10FFFF)
        codePoint = 0xFFFD;
    auto put = [&](char32_t byte) { text += static_cast<char>(byte); };
    if (codePoint < 0x80) {
        put(codePoint);
    } else if (codePoint < 0x800) {
        put(0xC0 | codePoint >> 6);
        put(0x80 | (codePoint & 0x3F));
    } else if (codePoint < 0x10000) {
        put(0xE0 | codePoint >> 12);
        put(0x80 | (codePoint >> 6 & 0x3F));
        put(0x80 | (codePoint & 0x3F));
    } else {
        put(0xF0 | codePoint >> 18);
        put(0x80 | (codePoint >> 12 & 0x3F));
        put(0x80 | (codePoint >> 6 & 0x3F));
        put(0x80 | (codePoint & 0x3F));
    }
}

std::size_t utf8SequenceLength(std::string_view text) {
    if (text.empty())
        return 0;
    auto byteAt = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    auto first = byteAt(0);
    if (first < 0x80)
        return 1;
    std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length)
        return 0;
    // The second byte alone tells overlong forms, surrogates and values beyond U+10FFFF.
    auto second = byteAt(1);
    unsigned char low = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    unsigned char high = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
    if (second < low || second > high)
        return 0;
    for (std::size_t at = 2; at < length; ++at) {
        if ((byteAt(at) & 0xC0) != 0x80)
            return 0;
    }
    return length;
}

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        auto length = utf8SequenceLength(text);
        if (length == 0)
            return false;
        text.remove_prefix(length);
    }
    return true;
}

std::optional<std::string> decodeText(std::span<const std::byte> bytes) {
    auto begins = [&](std::uint8_t first, std::uint8_t second) {
        return bytes.size() >= 2 && bytes[0] == std::byte{first} && bytes[1] == std::byte{second};
    };
    if (begins(0xFF, 0xFE))
        return decodeUtf16(bytes.subspan(2), false);
    if (begins(0xFE, 0xFF))
        return decodeUtf16(bytes.subspan(2), true);

    std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (text.starts_with("\xEF\xBB\xBF"))
        text.remove_prefix(3);
    if (!isUtf8(text))
        return std::nullopt;
    return std::string(text);
}

}  // namespace zelvo::platform
