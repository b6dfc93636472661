#include "sealing/Base64.h"

#include <cstdint>

namespace zelvo::sealing {

namespace {

constexpr std::string_view first62 =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";

std::string alphabetOf(Base64 form) {
    return std::string(first62) + (form == Base64::Padded ? "+/" : "-_");
}

}  // namespace

std::string encodeBase64(std::string_view bytes, Base64 form) {
    const auto alphabet = alphabetOf(form);
    std::string text;
    std::uint32_t bits = 0;
    int held = 0;
    for (const char byte : bytes) {
        bits = bits << 8 | static_cast<unsigned char>(byte);
        for (held += 8; held >= 6; held -= 6)
            text += alphabet[bits >> (held - 6) & 63];
    }
    if (held > 0)
        text += alphabet[bits << (6 - held) & 63];
    while (form == Base64::Padded && text.size() % 4 != 0)
        text += '=';
    return text;
}

std::optional<std::string> decodeBase64(std::string_view text, Base64 form) {
    const auto alphabet = alphabetOf(form);
    std::string bytes;
    std::uint32_t bits = 0;
    int held = 0;
    for (const char digit : text.substr(0, text.find('='))) {
        const auto value = alphabet.find(digit);
        if (value == std::string::npos)
            return std::nullopt;
        bits = bits << 6 | static_cast<std::uint32_t>(value);
        held += 6;
        if (held >= 8) {
            held -= 8;
            bytes += static_cast<char>(bits >> held);
        }
    }
    if (encodeBase64(bytes, form) != text)
        return std::nullopt;
    return bytes;
}

}  // namespace zelvo::sealing
