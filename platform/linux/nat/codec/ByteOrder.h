#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace zelvo::platform {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

// Numbers of the wire are big-endian. The readers trust that `at` and what follows lie inside.

inline void append16(Bytes& bytes, std::uint16_t value) {
    bytes.push_back(static_cast<std::uint8_t>(value >> 8));
    bytes.push_back(static_cast<std::uint8_t>(value));
}

inline void append32(Bytes& bytes, std::uint32_t value) {
    append16(bytes, static_cast<std::uint16_t>(value >> 16));
    append16(bytes, static_cast<std::uint16_t>(value));
}

inline std::uint16_t read16(ByteView bytes, std::size_t at) {
    return static_cast<std::uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

inline std::uint32_t read32(ByteView bytes, std::size_t at) {
    return static_cast<std::uint32_t>(read16(bytes, at)) << 16 | read16(bytes, at + 2);
}

}  // namespace zelvo::platform
