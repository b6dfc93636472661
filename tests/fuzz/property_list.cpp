// What the sharing service answers: a property list in any of its forms. A dictionary that was read
// is written and read again, as the defaults are.

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "platform/linux/property_lists/PlistParsing.h"
#include "platform/linux/property_lists/XmlPlistWriter.h"

using namespace zelvo::platform;

namespace {

/// Whether all of it is written as it is: not as data, not by the second, and equal to itself.
bool isExact(const PropertyList& value) {
    if (const auto* members = value.dictionary()) {
        for (const auto& [key, member] : *members) {
            if (!isExact(member))
                return false;
        }
    }
    if (const auto* elements = value.array()) {
        for (const auto& element : *elements) {
            if (!isExact(element))
                return false;
        }
    }
    const auto* text = value.string();
    const auto* real = value.real();
    const auto* date = value.date();
    return !(text && !isXmlText(*text)) && !(real && std::isnan(*real)) &&
           !(date && std::floor(date->secondsSince1970) != date->secondsSince1970);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto parsed = parsePlist(std::as_bytes(std::span(data, size)));
    if (parsed.value.has_value() != parsed.error.empty())
        std::abort();
    const auto* root = parsed.value ? parsed.value->dictionary() : nullptr;
    auto xml = root ? writeXmlPlist(*root) : std::nullopt;
    if (!xml)
        return 0;
    auto again = parsePlist(std::as_bytes(std::span(xml->constData(), xml->size())), 64 << 20);
    if (!again.value || (isExact(*parsed.value) && again.value != parsed.value))
        std::abort();
    return 0;
}
