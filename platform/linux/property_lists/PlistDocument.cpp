#include "platform/linux/property_lists/PlistDocument.h"

#include <locale.h>
#include <plist/plist.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <utility>

#include "platform/linux/base/TextEncoding.h"
#include "platform/linux/property_lists/BinaryPlistGuard.h"
#include "platform/linux/property_lists/TextPlistParser.h"
#include "platform/linux/property_lists/XmlPlistGuard.h"

namespace zelvo::platform {

namespace {

/// Seconds from 1970 to 2001, the epoch of libplist's dates.
constexpr double epoch2001 = 978307200;

/// libplist reads and writes numbers by the thread's locale, whose decimal point may be a comma.
class CNumbers {
  public:
    CNumbers()
        : locale_(newlocale(LC_NUMERIC_MASK, "C", static_cast<locale_t>(nullptr))),
          previous_(locale_ ? uselocale(locale_) : static_cast<locale_t>(nullptr)) {}
    CNumbers(const CNumbers&) = delete;
    CNumbers& operator=(const CNumbers&) = delete;
    ~CNumbers() {
        if (!locale_)
            return;
        uselocale(previous_);
        freelocale(locale_);
    }

  private:
    locale_t locale_;
    locale_t previous_;
};

struct FreeText {
    void operator()(char* text) const { std::free(text); }
};
using Text = std::unique_ptr<char, FreeText>;

std::optional<std::string> xmlOf(plist_t node) {
    CNumbers cNumbers;
    char* xml = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(node, &xml, &length);
    Text owner(xml);
    if (!xml)
        return std::nullopt;
    return std::string(xml, length);
}

/// What stands between the element's tags in the XML form of one number or date.
std::string elementText(plist_t node, const std::string& element) {
    auto xml = xmlOf(node).value_or("");
    auto start = xml.find("<" + element + ">");
    auto end = xml.find("</" + element + ">");
    if (start == xml.npos || end == xml.npos)
        return {};
    start += element.size() + 2;
    return xml.substr(start, end - start);
}

PropertyList integerOf(plist_t node) {
    std::uint64_t value = 0;
    plist_get_uint_val(node, &value);
    constexpr auto signBit = std::uint64_t{1} << 63;
    // The accessor gives no sign; only the written form tells -1 from 2^64 - 1.
    if ((value & signBit) != 0 && !elementText(node, "integer").starts_with('-'))
        return PropertyList(static_cast<double>(value));
    return PropertyList(static_cast<std::int64_t>(value));
}

/// Days from 1970-01-01 in the proleptic Gregorian calendar.
std::int64_t daysFromCivil(std::int64_t year, std::int64_t month, std::int64_t day) {
    year -= month <= 2 ? 1 : 0;
    auto era = (year >= 0 ? year : year - 399) / 400;
    auto yearOfEra = year - era * 400;
    auto dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    auto dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

PropertyList dateOf(plist_t node) {
    std::int32_t seconds = 0;
    std::int32_t microseconds = 0;
    plist_get_date_val(node, &seconds, &microseconds);
    if (seconds != std::numeric_limits<std::int32_t>::min() &&
        seconds != std::numeric_limits<std::int32_t>::max()) {
        auto fraction = microseconds / 1e6;
        return PropertyList(
            PropertyList::Date{epoch2001 + seconds + (seconds < 0 ? -fraction : fraction)});
    }
    // Beyond the accessor's 32 bits: the written form, "4001-01-01T00:00:00Z".
    auto text = elementText(node, "date");
    if (text.size() < 20)
        return PropertyList(PropertyList::Date{0});
    auto field = [&](std::size_t at, std::size_t length) {
        return std::int64_t{std::atoi(text.substr(at, length).c_str())};
    };
    auto days = daysFromCivil(field(0, 4), field(5, 2), field(8, 2));
    auto clock = field(11, 2) * 3600 + field(14, 2) * 60 + field(17, 2);
    return PropertyList(PropertyList::Date{static_cast<double>(days * 86400 + clock)});
}

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        auto length = utf8SequenceLength(text);
        if (length == 0)
            return false;
        text.remove_prefix(length);
    }
    return true;
}

bool convert(plist_t node, PropertyList& value);

bool convertDictionary(plist_t node, PropertyList& value) {
    PropertyList::Dictionary members;
    plist_dict_iter position = nullptr;
    plist_dict_new_iter(node, &position);
    std::unique_ptr<void, void (*)(void*)> owner(position, std::free);
    for (;;) {
        char* name = nullptr;
        plist_t item = nullptr;
        plist_dict_next_item(node, position, &name, &item);
        Text key(name);
        if (!item)
            break;
        std::string text = name ? name : "";
        PropertyList member;
        if (!isUtf8(text) || !convert(item, member))
            return false;
        members.insert_or_assign(std::move(text), std::move(member));
    }
    value = PropertyList(std::move(members));
    return true;
}

bool convertArray(plist_t node, PropertyList& value) {
    PropertyList::Array elements;
    plist_array_iter position = nullptr;
    plist_array_new_iter(node, &position);
    std::unique_ptr<void, void (*)(void*)> owner(position, std::free);
    for (;;) {
        plist_t item = nullptr;
        plist_array_next_item(node, position, &item);
        if (!item)
            break;
        PropertyList element;
        if (!convert(item, element))
            return false;
        elements.push_back(std::move(element));
    }
    value = PropertyList(std::move(elements));
    return true;
}

bool convertString(plist_t node, PropertyList& value) {
    std::uint64_t length = 0;
    const char* text = plist_get_string_ptr(node, &length);
    std::string copy(text ? text : "", text ? length : 0);
    if (!isUtf8(copy))
        return false;
    value = PropertyList(std::move(copy));
    return true;
}

bool convert(plist_t node, PropertyList& value) {
    switch (plist_get_node_type(node)) {
        case PLIST_DICT:
            return convertDictionary(node, value);
        case PLIST_ARRAY:
            return convertArray(node, value);
        case PLIST_STRING:
            return convertString(node, value);
        case PLIST_BOOLEAN:
            value = PropertyList(plist_bool_val_is_true(node) != 0);
            return true;
        case PLIST_UINT:
            value = integerOf(node);
            return true;
        case PLIST_REAL: {
            double number = 0;
            plist_get_real_val(node, &number);
            value = PropertyList(number);
            return true;
        }
        case PLIST_DATE:
            value = dateOf(node);
            return true;
        case PLIST_DATA: {
            std::uint64_t length = 0;
            const auto* bytes =
                reinterpret_cast<const std::byte*>(plist_get_data_ptr(node, &length));
            value = PropertyList(bytes ? PropertyList::Data(bytes, bytes + length)
                                       : PropertyList::Data());
            return true;
        }
        case PLIST_UID: {
            std::uint64_t number = 0;
            plist_get_uid_val(node, &number);
            value = PropertyList(
                PropertyList::Dictionary{{"CF$UID", static_cast<std::int64_t>(number)}});
            return true;
        }
        default:
            return false;
    }
}

/// Only the kinds that the text form has.
plist_t nodeOf(const PropertyList& value) {
    if (const auto* text = value.string())
        return plist_new_string(text->c_str());
    if (const auto* data = value.data())
        return plist_new_data(reinterpret_cast<const char*>(data->data()), data->size());
    if (const auto* members = value.dictionary()) {
        auto* node = plist_new_dict();
        for (const auto& [key, member] : *members)
            plist_dict_set_item(node, key.c_str(), nodeOf(member));
        return node;
    }
    auto* node = plist_new_array();
    if (const auto* elements = value.array()) {
        for (const auto& element : *elements)
            plist_array_append_item(node, nodeOf(element));
    }
    return node;
}

enum class Form { Xml, Binary, Text };

Form formOf(std::string_view text) {
    if (text.starts_with("bplist"))
        return Form::Binary;
    auto first = text.find_first_not_of(" \t\r\n");
    if (first == text.npos || text[first] != '<')
        return Form::Text;
    // Data of the text form also begins with <, but holds nothing but hexadecimal digits.
    auto next = text.find_first_not_of("0123456789abcdefABCDEF \t\r\n", first + 1);
    return next != text.npos && text[next] == '>' ? Form::Text : Form::Xml;
}

}  // namespace

void PlistDocument::Free::operator()(void* node) const {
    plist_free(node);
}

PlistDocument PlistDocument::emptyDictionary() {
    return PlistDocument(plist_new_dict());
}

PlistDocument::ParseResult PlistDocument::parse(std::span<const std::byte> bytes) {
    if (bytes.size() > sizeLimit)
        return {std::nullopt, "larger than 1 MiB"};
    CNumbers cNumbers;
    plist_t root = nullptr;
    if (formOf({reinterpret_cast<const char*>(bytes.data()), bytes.size()}) == Form::Binary) {
        if (auto why = refuseBinaryPlist(bytes, {.nesting = nestingLimit}); !why.empty())
            return {std::nullopt, "binary form: " + why};
        plist_from_bin(reinterpret_cast<const char*>(bytes.data()),
                       static_cast<std::uint32_t>(bytes.size()), &root);
    } else {
        auto text = decodeText(bytes);
        if (!text)
            return {std::nullopt, "neither UTF-8 nor UTF-16 text"};
        if (formOf(*text) != Form::Xml) {
            auto parsed = TextPlistParser::parse(bytes);
            if (!parsed.value)
                return {std::nullopt, "text form: " + parsed.error};
            return {PlistDocument(nodeOf(*parsed.value)), {}};
        }
        if (auto why = refuseXmlPlist(*text, nestingLimit); !why.empty())
            return {std::nullopt, "XML form: " + why};
        plist_from_xml(text->c_str(), static_cast<std::uint32_t>(text->size()), &root);
    }
    if (!root)
        return {std::nullopt, "no property list"};
    return {PlistDocument(root), {}};
}

std::optional<PropertyList> PlistDocument::toPropertyList() const {
    PropertyList value;
    if (!convert(root_.get(), value))
        return std::nullopt;
    return value;
}

std::optional<std::string> PlistDocument::toXml() const {
    return xmlOf(root_.get());
}

bool PlistDocument::isDictionary() const {
    return plist_get_node_type(root_.get()) == PLIST_DICT;
}

void PlistDocument::setString(std::string_view key, std::string_view value) {
    if (isDictionary())
        plist_dict_set_item(root_.get(), std::string(key).c_str(),
                            plist_new_string(std::string(value).c_str()));
}

void PlistDocument::removeMember(std::string_view key) {
    if (isDictionary())
        plist_dict_remove_item(root_.get(), std::string(key).c_str());
}

}  // namespace zelvo::platform
