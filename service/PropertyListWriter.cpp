#include "service/PropertyListWriter.h"

#include <string_view>

#include "platform/linux/base/TextEncoding.h"

namespace zelvo::service {
namespace {

constexpr std::string_view Prolog =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n<dict>\n";

void appendCharacter(std::string& xml, char32_t value, std::string_view bytes) {
    switch (value) {
        case '&':
            xml += "&amp;";
            break;
        case '<':
            xml += "&lt;";
            break;
        case '>':
            xml += "&gt;";
            break;
        case '\r':
            xml += "&#13;";  // as itself it would be read as a line feed
            break;
        default:
            if (platform::isXmlCharacter(value))
                xml += bytes;
    }
}

void appendText(std::string& xml, std::string_view text) {
    while (!text.empty()) {
        auto character = platform::firstCodePoint(text);
        auto length = character ? character->length : 1;
        if (character)
            appendCharacter(xml, character->value, text.substr(0, length));
        text.remove_prefix(length);
    }
}

}  // namespace

std::string PropertyListWriter::write(const Reply& reply) {
    std::string xml(Prolog);
    for (const auto& [key, value] : reply) {
        xml += "\t<key>";
        appendText(xml, key);
        xml += "</key>\n\t";
        if (const auto* number = std::get_if<std::int64_t>(&value)) {
            xml += "<integer>" + std::to_string(*number) + "</integer>\n";
        } else {
            xml += "<string>";
            appendText(xml, std::get<std::string>(value));
            xml += "</string>\n";
        }
    }
    return xml + "</dict>\n</plist>\n";
}

}  // namespace zelvo::service
