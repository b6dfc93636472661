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

/// Length of the UTF-8 sequence that the text begins with, from 1 to 4; 0 when it begins with none.
std::size_t utf8SequenceLength(std::string_view text);

/// Whether all of it is UTF-8 (RFC 3629).
bool isUtf8(std::string_view text);

/// Appends a code point as UTF-8; a surrogate or a value beyond Unicode becomes U+FFFD.
void appendUtf8(std::string& text, char32_t codePoint);

}  // namespace zelvo::platform
