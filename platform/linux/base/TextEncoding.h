#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace zelvo::platform {

/// The text as UTF-8 without a byte order mark: UTF-16 is converted where the bytes begin with its
/// mark, anything else has to be UTF-8 (RFC 3629). None when the bytes are no such text.
std::optional<std::string> decodeText(std::span<const std::byte> bytes);

/// UTF-16 without a mark as UTF-8; none when a surrogate or a byte stands alone.
std::optional<std::string> decodeUtf16(std::span<const std::byte> bytes, bool bigEndian);

/// Length of the UTF-8 sequence that the text begins with, from 1 to 4; 0 when it begins with none.
std::size_t utf8SequenceLength(std::string_view text);

/// Whether all of it is UTF-8 (RFC 3629).
bool isUtf8(std::string_view text);

struct CodePoint {
    char32_t value = 0;
    std::size_t length = 0;  ///< bytes it takes in the text
};
/// The character that the text begins with; none when it begins with no UTF-8 sequence.
std::optional<CodePoint> firstCodePoint(std::string_view text);

/// Whether XML 1.0 can hold the character (section 2.2), be it by a reference.
bool isXmlCharacter(char32_t codePoint);

/// Appends a code point as UTF-8; a surrogate or a value beyond Unicode becomes U+FFFD.
void appendUtf8(std::string& text, char32_t codePoint);

}  // namespace zelvo::platform
