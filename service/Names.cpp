#include "service/LinkName.h"

#include <sys/random.h>

#include <array>
#include <cerrno>
#include <string_view>

namespace zelvo::service {

std::optional<std::string> newLinkName() {
    std::array<unsigned char, 16> bytes{};
    ssize_t got = 0;
    do {
        got = getrandom(bytes.data(), bytes.size(), 0);
    } while (got < 0 && errno == EINTR);
    if (got != static_cast<ssize_t>(bytes.size()))
        return std::nullopt;
    constexpr std::string_view digits = "0123456789abcdef";
    std::string name;
    for (auto byte : bytes) {
        name += digits[byte >> 4];
        name += digits[byte & 15];
    }
    return name;
}

}  // namespace zelvo::service
