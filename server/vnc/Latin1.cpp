#include "server/vnc/Latin1.h"

namespace zelvo::server {

std::string latin1(const std::string& utf8) {
    std::string text;
    for (std::size_t i = 0; i < utf8.size(); ++i) {
        const auto byte = static_cast<unsigned char>(utf8[i]);
        if (byte < 0x80) {
            text.push_back(utf8[i]);
        } else if ((byte == 0xC2 || byte == 0xC3) && i + 1 < utf8.size()) {
            text.push_back(static_cast<char>((byte & 3U) << 6U | (utf8[++i] & 0x3FU)));
        } else {
            text.push_back('?');
            while (i + 1 < utf8.size() && (static_cast<unsigned char>(utf8[i + 1]) & 0xC0U) == 0x80)
                ++i;
        }
    }
    return text;
}

std::string utf8(const std::string& latin1Text) {
    std::string text;
    for (char character : latin1Text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x80) {
            text.push_back(character);
        } else {
            text.push_back(static_cast<char>(0xC0U | byte >> 6U));
            text.push_back(static_cast<char>(0x80U | (byte & 0x3FU)));
        }
    }
    return text;
}

}  // namespace zelvo::server
