#include "platform/linux/property_lists/PlistParsing.h"

#include <utility>

#include "platform/linux/base/TextEncoding.h"

namespace zelvo::platform {

namespace {

bool isXml(std::string_view text) {
    auto first = text.find_first_not_of(" \t\r\n");
    if (first == text.npos || text[first] != '<')
        return false;
    // Data of the text form also begins with <, but holds nothing but hexadecimal digits.
    auto next = text.find_first_not_of("0123456789abcdefABCDEF \t\r\n", first + 1);
    return next == text.npos || text[next] != '>';
}

ParsedPlist named(const char* form, ParsedPlist parsed) {
    if (!parsed.value)
        parsed.error = form + (": " + parsed.error);
    return parsed;
}

}  // namespace

ParsedPlist parsePlist(std::span<const std::byte> bytes, std::size_t sizeLimit) {
    if (bytes.size() > sizeLimit)
        return {std::nullopt, "larger than " + std::to_string(sizeLimit >> 20) + " MiB"};
    std::string_view raw(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (raw.starts_with("bplist"))
        return named("binary form", parseBinaryPlist(bytes));
    auto text = decodeText(bytes);
    if (!text)
        return {std::nullopt, "neither UTF-8 nor UTF-16 text"};
    return isXml(*text) ? named("XML form", parseXmlPlist(*text))
                        : named("text form", parseTextPlist(*text));
}

}  // namespace zelvo::platform
