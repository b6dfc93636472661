#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>

#include "platform/PropertyList.h"

namespace zelvo::platform {

/// Reads property lists in their old text form, and string tables: dictionaries `{ key = value; }`,
/// arrays `( a, b )`, data `<0a 1b>`, strings quoted with escapes or bare, comments of both kinds.
/// A string table is the inside of a dictionary without its braces; an entry `key;` stands for
/// `key = key;`. The text is UTF-8, or UTF-16 with a byte order mark. Any thread.
class TextPlistParser {
  public:
    static constexpr std::size_t sizeLimit = std::size_t{1} << 20;
    /// Containers within each other.
    static constexpr int nestingLimit = 64;

    struct Result {
        std::optional<PropertyList> value;
        /// Why there is no value, with the line.
        std::string error;
    };

    static Result parse(std::span<const std::byte> bytes);
};

}  // namespace zelvo::platform
