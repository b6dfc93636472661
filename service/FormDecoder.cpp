#include "service/FormDecoder.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "platform/linux/base/TextEncoding.h"
#include "service/SharingFields.h"

namespace zelvo::service {
namespace {

std::optional<unsigned> hexDigit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return std::nullopt;
}

std::optional<std::string> unescape(std::string_view raw) {
    std::string text;
    text.reserve(raw.size());
    for (std::size_t at = 0; at < raw.size(); ++at) {
        if (raw[at] != '%') {
            text.push_back(raw[at]);
            continue;
        }
        if (raw.size() - at < 3)
            return std::nullopt;
        auto high = hexDigit(raw[at + 1]);
        auto low = hexDigit(raw[at + 2]);
        if (!high || !low)
            return std::nullopt;
        text.push_back(static_cast<char>(*high << 4 | *low));
        at += 2;
    }
    if (text.find('\0') != std::string::npos || !platform::isUtf8(text))
        return std::nullopt;
    return text;
}

}  // namespace

FormDecoder::Result FormDecoder::decode(std::string_view body) const {
    RawValues values;
    auto result = split(body, values);
    if (result.status != StatusCode::Ok)
        return result;
    for (auto name : names_) {
        const auto longest = name == SettingsName ? LongestSettings : LongestValue;
        auto raw = values.find(name);
        if (raw == values.end())
            return {StatusCode::MissingField, name, {}};
        auto text = unescape(raw->second);
        if (name == KeptLinkName && (!text || text->size() > longest))
            text = "";
        if (!text)
            return {StatusCode::MalformedField, name, {}};
        if (text->size() > longest)
            return {StatusCode::FieldTooLong, name, {}};
        result.fields.emplace(name, std::move(*text));
    }
    return result;
}

std::string_view FormDecoder::nameOf(std::string_view segment) const {
    for (auto name : names_)
        if (segment.size() > name.size() && segment[name.size()] == '=' &&
            segment.starts_with(name))
            return name;
    return {};
}

FormDecoder::Result FormDecoder::split(std::string_view body, RawValues& values) const {
    std::string_view* current = nullptr;
    for (std::size_t begin = 0; begin < body.size();) {
        auto end = std::min(body.find('&', begin), body.size());
        auto segment = body.substr(begin, end - begin);
        if (auto name = nameOf(segment); !name.empty()) {
            auto value = segment.substr(name.size() + 1);
            auto [field, isNew] = values.emplace(name, value);
            if (!isNew) {
                auto kept = values.find(KeptLinkName);
                if (kept == values.end())
                    return {StatusCode::DuplicateField, name, {}};
                // One of the two is part of the kept link: this one where the client's own came
                // before the link, else the one before.
                if (field->second.data() > kept->second.data()) {
                    field->second = value;
                } else {
                    field = kept;
                    kept->second = {kept->second.data(), body.data() + end};
                }
            }
            current = &field->second;
        } else if (current) {
            *current = {current->data(), body.data() + end};
        } else {
            return {StatusCode::MalformedField, {}, {}};
        }
        begin = end + 1;
    }
    // An "&" at the very end is followed by an empty segment, which the loop does not see.
    if (current && body.ends_with('&'))
        *current = {current->data(), body.data() + body.size()};
    return {};
}

}  // namespace zelvo::service
