#include "platform/linux/desktop/KdeConfig.h"

#include <algorithm>

#include "platform/linux/base/FileReading.h"

namespace zelvo::platform {

namespace {

std::string unescaped(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            result += text[i];
            continue;
        }
        switch (text[++i]) {
            case 's':
                result += ' ';
                break;
            case 't':
                result += '\t';
                break;
            case 'n':
                result += '\n';
                break;
            case 'r':
                result += '\r';
                break;
            case '\\':
                result += '\\';
                break;
            default:
                // Of a list: a comma that parts nothing.
                result += '\\';
                result += text[i];
        }
    }
    return result;
}

}  // namespace

KdeConfig::KdeConfig(std::string_view text) {
    std::string group;
    while (!text.empty()) {
        auto end = std::min(text.find('\n'), text.size());
        auto line = trimmed(std::string(text.substr(0, end)));
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.starts_with('[') && line.ends_with(']')) {
            group = line.substr(1, line.size() - 2);
            // What may not be changed says so behind the group's name.
            if (auto flags = group.find("][$"); flags != group.npos)
                group.erase(flags);
            continue;
        }
        auto equals = line.find('=');
        if (equals == line.npos || line.starts_with('#'))
            continue;
        auto key = trimmed(line.substr(0, equals));
        if (auto flags = key.find("[$"); flags != key.npos)
            key.erase(flags);
        groups_[group].insert_or_assign(key, unescaped(trimmed(line.substr(equals + 1))));
    }
}

KdeConfig KdeConfig::ofFile(const std::string& path) {
    return KdeConfig(readTextFile(path).value_or(""));
}

std::optional<std::string> KdeConfig::entry(const std::string& group,
                                            const std::string& key) const {
    auto entries = groups_.find(group);
    if (entries == groups_.end())
        return std::nullopt;
    auto found = entries->second.find(key);
    return found == entries->second.end() ? std::nullopt : std::optional(found->second);
}

std::vector<std::string> KdeConfig::list(const std::string& group, const std::string& key) const {
    auto text = entry(group, key);
    if (!text)
        return {};
    std::vector<std::string> parts(1);
    for (std::size_t i = 0; i < text->size(); ++i) {
        if ((*text)[i] == '\\' && i + 1 < text->size())
            parts.back() += (*text)[++i];
        else if ((*text)[i] == ',')
            parts.emplace_back();
        else
            parts.back() += (*text)[i];
    }
    return parts;
}

}  // namespace zelvo::platform
