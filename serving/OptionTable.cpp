#include "serving/OptionTable.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <limits>
#include <utility>

#include "platform/linux/base/FileReading.h"

namespace zelvo::serving {
namespace {

constexpr std::size_t HelpColumn = 36;

template <typename Number>
bool readNumber(std::string_view text, Number& number) {
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    return failure == std::errc() && end == text.data() + text.size();
}

}  // namespace

void OptionTable::add(std::string_view name, std::string_view value, std::string_view help,
                      std::function<bool(const std::string&)> read) {
    options_.push_back({.name = std::string(name),
                        .value = std::string(value),
                        .help = std::string(help),
                        .read = std::move(read)});
}

void OptionTable::add(std::string_view name, std::string_view value, std::string_view help,
                      std::string& place) {
    add(name, value, help, [&place](const std::string& text) {
        place = text;
        return true;
    });
}

void OptionTable::addPort(std::string_view name, std::string_view help, int& place) {
    add(name, "PORT", help, [&place](const std::string& text) {
        return readNumber(text, place) && place >= 0 && place <= 65535;
    });
}

void OptionTable::addCount(std::string_view name, std::string_view help, std::size_t& place) {
    add(name, "COUNT", help, [&place](const std::string& text) { return readNumber(text, place); });
}

void OptionTable::addRate(std::string_view name, std::string_view help, Allowances::Rate& place) {
    add(name, "N/RATE", help, [&place](const std::string& text) {
        const auto slash = std::min(text.find('/'), text.size());
        const std::string_view all(text);
        place.perSecond = 0;
        return readNumber(all.substr(0, slash), place.atOnce) && place.atOnce >= 0 &&
               (slash == text.size() ||
                (readNumber(all.substr(slash + 1), place.perSecond) && place.perSecond >= 0));
    });
}

void OptionTable::addAddresses(std::string_view name, std::string_view help,
                               std::set<ClientAddress>& place) {
    add(name, "ADDRESS,...", help, [&place](const std::string& text) {
        place.clear();
        for (std::size_t at = 0; at <= text.size();) {
            const auto end = std::min(text.find(',', at), text.size());
            const auto address = ClientAddress::parse(platform::trimmed(text.substr(at, end - at)));
            if (!address)
                return false;
            place.insert(*address);
            at = end + 1;
        }
        return true;
    });
}

void OptionTable::addSwitch(std::string_view name, std::string_view help, bool& place) {
    add(name, "", help, [&place](const std::string& text) {
        place = text.empty() || text == "yes";
        return place || text == "no";
    });
    options_.back().isSwitch = true;
}

std::string OptionTable::read(std::span<char*> arguments) {
    std::string config;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string word = arguments[i];
        auto* option = word.starts_with("--") ? find(std::string_view(word).substr(2)) : nullptr;
        const bool isConfig = word == "--config";
        if (!option && !isConfig)
            return "unknown option: " + word;
        if (option && option->isGiven)
            return "repeated option: " + word;
        std::string value;
        if (!option || !option->isSwitch) {
            if (i + 1 == arguments.size() || *arguments[i + 1] == '\0')
                return "option without a value: " + word;
            value = arguments[++i];
        }
        if (isConfig)
            config = value;
        else if (auto trouble = set(*option, value); !trouble.empty())
            return trouble;
    }
    return config.empty() ? "" : readFile(config);
}

std::string OptionTable::readFile(const std::string& file) {
    std::ifstream lines(file);
    if (!lines)
        return "cannot read " + file;
    std::set<std::string> seen;
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        const auto where = file + ", line " + std::to_string(number) + ": ";
        line = platform::trimmed(line.substr(0, line.find('#')));
        if (line.empty())
            continue;
        const auto mark = std::min(line.find('='), line.size());
        const auto name = platform::trimmed(line.substr(0, mark));
        const auto value = platform::trimmed(line.substr(std::min(mark + 1, line.size())));
        auto* option = find(name);
        if (!option)
            return where + "unknown option: " + name;
        if (!seen.insert(name).second)
            return where + "repeated option: " + name;
        if (option->isGiven)
            continue;
        if (value.empty() && !option->isSwitch)
            return where + "option without a value: " + name;
        if (auto trouble = set(*option, value); !trouble.empty())
            return where + trouble;
    }
    // A folder, say, opens like a file.
    return lines.bad() ? "cannot read " + file : "";
}

std::string OptionTable::set(Option& option, const std::string& value) {
    option.isGiven = true;
    return option.read(value) ? "" : "not a value of " + option.name + ": " + value;
}

OptionTable::Option* OptionTable::find(std::string_view name) {
    const auto found = std::ranges::find(options_, name, &Option::name);
    return found == options_.end() ? nullptr : &*found;
}

std::string OptionTable::help() const {
    std::string text;
    for (const auto& option : options_) {
        auto line = "  --" + option.name + (option.value.empty() ? "" : " " + option.value);
        line.resize(std::max(HelpColumn, line.size() + 2), ' ');
        text += line + option.help + "\n";
    }
    return text;
}

}  // namespace zelvo::serving
