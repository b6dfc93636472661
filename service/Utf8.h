#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace zelvo::service {

struct CodePoint {
    char32_t value = 0;
    std::size_t length = 0;  ///< bytes it takes in the text
};

/// The character that the text begins with; nothing when the text is empty or does not begin with
/// a well-formed sequence (RFC 3629: shortest form, no surrogates, at most U+10FFFF).
std::optional<CodePoint> firstCodePoint(std::string_view text);

bool isUtf8(std::string_view text);

}  // namespace zelvo::service
