#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/PropertyList.h"

namespace zelvo::platform {

struct ParsedPlist {
    std::optional<PropertyList> value;
    /// Why there is no value.
    std::string error;
};

struct PlistLimits {
    static constexpr std::size_t bytes = std::size_t{1} << 20;
    /// Containers within each other.
    static constexpr int nesting = 64;
    /// Values, and bytes of content for each byte of the file, once every object of the binary form
    /// is copied to each place that names it.
    static constexpr std::size_t binaryValues = std::size_t{1} << 18;
    static constexpr std::size_t binaryCopies = 4;
};

/// Reads a property list in the XML, binary or old text form, the form told by the bytes. Every
/// string is UTF-8. An integer beyond 64 signed bits becomes a real, a UID the dictionary
/// { "CF$UID" = number }. Any thread.
ParsedPlist parsePlist(std::span<const std::byte> bytes,
                       std::size_t sizeLimit = PlistLimits::bytes);

/// Each form by itself, of text that is UTF-8 and of bytes that begin with "bplist".
ParsedPlist parseXmlPlist(std::string_view text);
ParsedPlist parseTextPlist(std::string_view text);
ParsedPlist parseBinaryPlist(std::span<const std::byte> bytes);

}  // namespace zelvo::platform
