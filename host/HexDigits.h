#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace zelvo {

inline constexpr std::string_view LowerCaseHex = "0123456789abcdef";
inline constexpr std::string_view UpperCaseHex = "0123456789ABCDEF";

/// Two digits a byte, with `separator` between the bytes.
inline std::string hexDigits(std::span<const std::byte> bytes, std::string_view digits,
                             std::string_view separator = "") {
    std::string text;
    for (auto byte : bytes) {
        if (!text.empty())
            text += separator;
        auto value = std::to_integer<unsigned>(byte);
        text += digits[value >> 4];
        text += digits[value & 15];
    }
    return text;
}

}  // namespace zelvo
