#include "platform/linux/privileges/helper/Quoting.h"

namespace zelvo::platform {

std::string inQuotes(std::string_view text) {
    constexpr std::size_t longest = 60;
    constexpr std::string_view digits = "0123456789abcdef";
    std::string result = "\"";
    for (unsigned char c : text.substr(0, longest)) {
        if (c >= ' ' && c < 0x7f && c != '"' && c != '\\')
            result += static_cast<char>(c);
        else
            result.append("\\x").append(1, digits[c / 16]).append(1, digits[c % 16]);
    }
    return result + (text.size() > longest ? "...\"" : "\"");
}

}  // namespace zelvo::platform
