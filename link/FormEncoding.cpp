#include "link/FormEncoding.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <utility>

namespace zelvo {

namespace {

using platform::PropertyList;

bool isAsciiAlphanumeric(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

std::string realText(double number) {
    if (std::isnan(number))
        return "nan";
    if (std::isinf(number))
        return number < 0 ? "-inf" : "inf";
    std::array<char, 64> buffer{};
    auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number).ptr;
    return {buffer.data(), end};
}

/// Such as "2001-01-01 00:00:00 +0000".
std::string dateText(PropertyList::Date date) {
    using namespace std::chrono;
    constexpr double limit = 2e11;  // Some 6,000 years, beyond which the calendar types overflow.
    auto seconds = std::isfinite(date.secondsSince1970)
                       ? std::fmin(std::fmax(date.secondsSince1970, -limit), limit)
                       : 0.0;
    sys_seconds time{std::chrono::seconds(static_cast<std::int64_t>(std::floor(seconds)))};
    auto midnight = floor<days>(time);
    year_month_day day{midnight};
    hh_mm_ss clock{time - midnight};
    std::array<char, 64> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "%04d-%02u-%02u %02d:%02d:%02d +0000",
                  static_cast<int>(day.year()), static_cast<unsigned>(day.month()),
                  static_cast<unsigned>(day.day()), static_cast<int>(clock.hours().count()),
                  static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()));
    return buffer.data();
}

std::string dataText(const PropertyList::Data& data) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text = "<";
    for (std::size_t i = 0; i < data.size(); ++i) {
        if (i > 0 && i % 4 == 0)
            text += ' ';
        auto byte = std::to_integer<unsigned>(data[i]);
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text + '>';
}

/// The next code point of valid UTF-8; the byte itself where the text is not valid.
char32_t nextCodePoint(std::string_view text, std::size_t& at) {
    auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    auto first = byte(at++);
    int more = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : first >= 0xC0 ? 1 : 0;
    if (more == 0 || at + static_cast<std::size_t>(more) > text.size())
        return first;
    char32_t point = first & (0x3Fu >> more);
    for (int i = 0; i < more; ++i)
        point = (point << 6) | (byte(at++) & 0x3Fu);
    return point;
}

/// A string as it stands inside a collection's text.
std::string quoted(const std::string& text) {
    bool plain = !text.empty();
    for (char c : text)
        plain = plain && isAsciiAlphanumeric(c);
    if (plain)
        return text;
    std::string result = "\"";
    for (std::size_t at = 0; at < text.size();) {
        auto point = nextCodePoint(text, at);
        if (point == '"' || point == '\\') {
            result += '\\';
            result += static_cast<char>(point);
        } else if (point == '\n') {
            result += "\\n";
        } else if (point < 0x80) {
            result += static_cast<char>(point);
        } else {
            // UTF-16 code units.
            std::array<char, 32> buffer{};
            if (point > 0xFFFF)
                std::snprintf(buffer.data(), buffer.size(), "\\U%04x\\U%04x",
                              static_cast<unsigned>(0xD800 + ((point - 0x10000) >> 10)),
                              static_cast<unsigned>(0xDC00 + ((point - 0x10000) & 0x3FF)));
            else
                std::snprintf(buffer.data(), buffer.size(), "\\U%04x",
                              static_cast<unsigned>(point));
            result += buffer.data();
        }
    }
    return result + '"';
}

std::string describe(const PropertyList& value, std::size_t level);

std::string member(const PropertyList& value, std::size_t level) {
    if (const auto* text = value.string())
        return quoted(*text);
    if (value.array() || value.dictionary())
        return std::string(4 * level, ' ') + describe(value, level);
    if (value.date())
        return quoted(describe(value, level));
    return describe(value, level);
}

std::string describe(const PropertyList& value, std::size_t level) {
    const std::string indent(4 * level, ' ');
    if (const auto* text = value.string())
        return *text;
    if (const auto* number = value.integer())
        return std::to_string(*number);
    if (const auto* number = value.real())
        return realText(*number);
    if (const auto* flag = value.boolean())
        return *flag ? "1" : "0";
    if (const auto* date = value.date())
        return dateText(*date);
    if (const auto* data = value.data())
        return dataText(*data);
    if (const auto* array = value.array()) {
        std::string text = "(\n";
        for (std::size_t i = 0; i < array->size(); ++i)
            text += indent + "    " + member((*array)[i], level + 1) +
                    (i + 1 < array->size() ? ",\n" : "\n");
        return text + indent + ')';
    }
    std::string text = "{\n";
    for (const auto& [key, inner] : *value.dictionary())
        text += indent + "    " + quoted(key) + " = " + member(inner, level + 1) + ";\n";
    return text + indent + '}';
}

}  // namespace

std::string percentEscaped(std::string_view text) {
    constexpr std::string_view kept = "-_.!~*'();/?:@&=+$,";
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string result;
    result.reserve(text.size() + text.size() / 4);
    for (char c : text) {
        if (isAsciiAlphanumeric(c) || kept.find(c) != std::string_view::npos) {
            result += c;
        } else {
            auto byte = static_cast<unsigned char>(c);
            result += '%';
            result += digits[byte >> 4];
            result += digits[byte & 15];
        }
    }
    return result;
}

std::string description(const platform::PropertyList& value) {
    return describe(value, 0);
}

platform::UrlRequest formPost(std::string url, std::string_view fields) {
    platform::UrlRequest request;
    request.url = std::move(url);
    request.cachePolicy = platform::CachePolicy::ReloadIgnoringLocalCacheData;
    request.timeout = std::chrono::seconds(60);
    request.method = "POST";
    request.headers.emplace_back("Content-Type", "application/x-www-form-urlencoded");
    const auto* bytes = reinterpret_cast<const std::byte*>(fields.data());
    request.body.assign(bytes, bytes + fields.size());
    return request;
}

void appendField(std::string& fields, std::string_view name, const platform::PropertyList& value) {
    if (!fields.empty())
        fields += '&';
    fields += name;
    fields += '=';
    fields += percentEscaped(description(value));
}

}  // namespace zelvo
