#include "platform/linux/base/ShellAssignments.h"

#include <algorithm>

namespace zelvo::platform {

namespace {

std::string unquoted(std::string_view text) {
    std::string value;
    char quote = '\0';
    for (std::size_t at = 0; at < text.size(); ++at) {
        char c = text[at];
        if (quote == '\0' && (c == ' ' || c == '\t' || c == '\r'))
            break;
        if (c == quote)
            quote = '\0';
        else if (quote == '\0' && (c == '"' || c == '\''))
            quote = c;
        else if (c == '\\' && quote != '\'' && at + 1 < text.size())
            value += text[++at];
        else
            value += c;
    }
    return value;
}

}  // namespace

std::optional<std::string> shellAssignment(std::string_view text, std::string_view name) {
    std::optional<std::string> value;
    while (!text.empty()) {
        auto end = std::min(text.find('\n'), text.size());
        auto line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
        if (line.starts_with(name) && line.substr(name.size()).starts_with('='))
            value = unquoted(line.substr(name.size() + 1));
    }
    return value;
}

}  // namespace zelvo::platform
