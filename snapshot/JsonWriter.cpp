#include "snapshot/JsonWriter.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "snapshot/Utf8.h"

namespace zelvo {

namespace {

constexpr std::string_view ReplacementCharacter = "\xEF\xBF\xBD";

template <typename Number>
std::string decimal(Number number) {
    std::array<char, 32> digits{};
    auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    return std::string(digits.data(), end);
}

/// What stands for an ASCII character inside a string.
std::string escaped(char c) {
    constexpr std::string_view special = "\"\\\b\f\n\r\t";
    constexpr std::string_view letters = "\"\\bfnrt";
    constexpr std::string_view hex = "0123456789abcdef";
    if (auto found = special.find(c); found != std::string_view::npos)
        return {'\\', letters[found]};
    if (auto code = static_cast<unsigned char>(c); code < 0x20)
        return std::string("\\u00") + hex[code >> 4] + hex[code & 15];
    return {c};
}

}  // namespace

bool isJsonRepresentable(const platform::PropertyList& value) {
    if (const auto* number = value.real())
        return std::isfinite(*number);
    if (const auto* elements = value.array())
        return std::all_of(elements->begin(), elements->end(), isJsonRepresentable);
    if (const auto* members = value.dictionary())
        return std::all_of(members->begin(), members->end(),
                           [](const auto& member) { return isJsonRepresentable(member.second); });
    return !value.date() && !value.data();
}

void JsonWriter::key(std::string_view name) {
    beginValue();
    quoted(name);
    text_ += ':';
    needsComma_ = false;
}

void JsonWriter::string(std::string_view text) {
    beginValue();
    quoted(text);
}

void JsonWriter::integer(std::int64_t number) {
    beginValue();
    text_ += decimal(number);
}

void JsonWriter::boolean(bool flag) {
    beginValue();
    text_ += flag ? "true" : "false";
}

void JsonWriter::real(double number) {
    beginValue();
    text_ += decimal(number);
}

void JsonWriter::propertyList(const platform::PropertyList& value) {
    if (const auto* members = value.dictionary()) {
        beginObject();
        for (const auto& [name, member] : *members) {
            key(name);
            propertyList(member);
        }
        endObject();
    } else if (const auto* elements = value.array()) {
        beginArray();
        for (const auto& element : *elements)
            propertyList(element);
        endArray();
    } else if (const auto* text = value.string()) {
        string(*text);
    } else if (const auto* number = value.integer()) {
        integer(*number);
    } else if (const auto* flag = value.boolean()) {
        boolean(*flag);
    } else if (const auto* fraction = value.real()) {
        real(*fraction);
    }
}

void JsonWriter::begin(char bracket) {
    beginValue();
    text_ += bracket;
    needsComma_ = false;
}

void JsonWriter::end(char bracket) {
    text_ += bracket;
    needsComma_ = true;
}

void JsonWriter::beginValue() {
    if (needsComma_)
        text_ += ',';
    needsComma_ = true;
}

void JsonWriter::quoted(std::string_view text) {
    text_ += '"';
    while (!text.empty()) {
        auto length = utf8SequenceLength(text);
        if (length == 0)
            text_ += ReplacementCharacter;
        else if (length == 1)
            text_ += escaped(text.front());
        else
            text_ += text.substr(0, length);
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    text_ += '"';
}

}  // namespace zelvo
