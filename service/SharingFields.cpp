#include "service/SharingFields.h"

#include <algorithm>
#include <charconv>

#include "service/JsonObject.h"

namespace zelvo::service {
namespace {

/// A decimal number as it is printed: digits alone, no leading zero.
bool isDecimalUpTo(std::string_view text, unsigned limit) {
    constexpr std::size_t longest = 5;
    if (text.empty() || text.size() > longest || (text.size() > 1 && text.front() == '0') ||
        text.find_first_not_of("0123456789") != std::string_view::npos)
        return false;
    unsigned number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number <= limit;
}

bool isPort(std::string_view text) {
    return text != "0" && isDecimalUpTo(text, 65535);
}

bool isDottedQuad(std::string_view text) {
    for (int part = 0; part < 3; ++part) {
        auto point = text.find('.');
        if (point == std::string_view::npos || !isDecimalUpTo(text.substr(0, point), 255))
            return false;
        text.remove_prefix(point + 1);
    }
    return isDecimalUpTo(text, 255);
}

bool isHardwareAddress(std::string_view text) {
    return text.empty() || (text.size() == 12 &&
                            text.find_first_not_of("0123456789abcdef") == std::string_view::npos);
}

struct Rule {
    std::string_view field;
    bool (*isLegal)(std::string_view);
};

constexpr Rule Rules[] = {
    {"vncPort", isPort},
    {"Port", isPort},
    {"IPAddress", isDottedQuad},
    {"MacAddress", isHardwareAddress},
    {"MappedService", [](std::string_view text) { return text == "vnc"; }},
    {"HotKeys", isJsonObject},
    {"availabilityStatus", [](std::string_view text) { return text == "0" || text == "1"; }},
};

}  // namespace

bool isLegalValue(std::string_view field, std::string_view value) {
    const auto* rule = std::ranges::find(Rules, field, &Rule::field);
    return rule == std::end(Rules) || rule->isLegal(value);
}

}  // namespace zelvo::service
