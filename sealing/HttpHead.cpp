#include "sealing/HttpHead.h"

#include <algorithm>

namespace zelvo::sealing {

namespace {

using namespace std::string_view_literals;

std::string lowered(std::string_view text) {
    std::string lower(text);
    for (char& c : lower)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    return lower;
}

bool isTokenCharacter(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           "!#$%&'*+-.^_`|~"sv.find(c) != std::string_view::npos;
}

bool isValueCharacter(char c) {
    return c == '\t' || (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F);
}

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

}  // namespace

std::optional<HttpHead> HttpHead::parse(std::string_view text) {
    HttpHead head;
    for (bool isFirst = true; !text.empty(); isFirst = false) {
        const auto line = text.substr(0, text.find("\r\n"));
        text.remove_prefix(std::min(text.size(), line.size() + 2));
        if (!std::all_of(line.begin(), line.end(), isValueCharacter))
            return std::nullopt;
        if (isFirst) {
            head.firstLine = line;
            continue;
        }
        const auto name = line.substr(0, line.find(':'));
        if (name.empty() || name.size() == line.size() || head.fields.size() == mostFields ||
            !std::all_of(name.begin(), name.end(), isTokenCharacter))
            return std::nullopt;
        head.fields.push_back({lowered(name), trimmed(line.substr(name.size() + 1))});
    }
    return head;
}

std::optional<std::string_view> HttpHead::only(std::string_view name) const {
    std::optional<std::string_view> value;
    for (const auto& field : fields) {
        if (field.name != name)
            continue;
        if (value)
            return std::nullopt;
        value = field.value;
    }
    return value;
}

bool HttpHead::has(std::string_view name) const {
    return std::any_of(fields.begin(), fields.end(),
                       [&](const Field& field) { return field.name == name; });
}

bool HttpHead::lists(std::string_view name, std::string_view token, bool caseCounts) const {
    for (const auto& field : fields) {
        if (field.name != name)
            continue;
        for (auto left = field.value; !left.empty();) {
            const auto item = left.substr(0, left.find(','));
            left.remove_prefix(std::min(left.size(), item.size() + 1));
            const auto found = trimmed(item);
            if (found == token || (!caseCounts && lowered(found) == token))
                return true;
        }
    }
    return false;
}

}  // namespace zelvo::sealing
