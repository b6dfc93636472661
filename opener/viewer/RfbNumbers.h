#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace zelvo::opener::rfb {

/// Encodings that are asked for (RFC 6143, section 7.7, and the registry).
enum Encoding : std::uint32_t {
    raw = 0,
    copyRectangle = 1,
    tight = 7,
    zrle = 16,
    desktopSize = 0xFFFFFF21,
    lastRectangle = 0xFFFFFF20,
    pointerPosition = 0xFFFFFF18,
    richCursor = 0xFFFFFF11,
    extendedDesktopSize = 0xFFFFFECC,
    extendedClipboard = 0xC0A1E5CE,
    /// And up to nine more.
    lowestQuality = 0xFFFFFFE0,
    lowestCompression = 0xFFFFFF00,
};

/// Big-endian.
inline std::string number(std::size_t value, std::size_t size) {
    std::string bytes(size, '\0');
    for (auto at = bytes.rbegin(); at != bytes.rend(); ++at, value >>= 8U)
        *at = static_cast<char>(value & 0xFFU);
    return bytes;
}

}  // namespace zelvo::opener::rfb
