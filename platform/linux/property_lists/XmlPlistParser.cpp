#include <QXmlStreamReader>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <utility>

#include "platform/linux/base/FileReading.h"
#include "platform/linux/property_lists/PlistParsing.h"

namespace zelvo::platform {

namespace {

/// A tag has a name and the property list's version. The reader compares each attribute of a tag
/// with every other, so that a tag of 1 MiB would take minutes.
constexpr std::size_t longestTag = 1024;

/// Where the markup that the text begins with ends; npos when it does not.
std::size_t markupLength(std::string_view text) {
    for (auto [begin, end] : {std::pair("<!--", "-->"), {"<![CDATA[", "]]>"}, {"<?", "?>"}}) {
        if (text.starts_with(begin))
            return text.find(end);
    }
    auto at = text.find_first_of("'\">");
    while (at != text.npos && text[at] != '>') {
        at = text.find(text[at], at + 1);
        at = at == text.npos ? at : text.find_first_of("'\">", at + 1);
    }
    return at;
}

std::string refuseTags(std::string_view text) {
    for (auto at = text.find('<'); at != text.npos; at = text.find('<', at)) {
        auto length = markupLength(text.substr(at));
        if (length == text.npos)
            return "markup without an end";
        auto markup = text.substr(at, length);
        bool isTag = !markup.starts_with("<!") && !markup.starts_with("<?");
        if (isTag && length > longestTag)
            return "a tag of more than 1 KiB";
        // An internal subset could declare entities of its own.
        if (markup.starts_with("<!DOCTYPE") && markup.find('[') != markup.npos)
            return "a document type with declarations";
        at += length;
    }
    return {};
}

template <typename Number>
std::optional<Number> wholeNumber(std::string_view text, int base) {
    Number number{};
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    bool isWhole = error == std::errc() && end == text.data() + text.size();
    return isWhole ? std::optional(number) : std::nullopt;
}

/// Decimal with any number of zeros in front, or hexadecimal after 0x.
std::optional<PropertyList> integerOf(std::string_view text) {
    bool negative = text.starts_with('-');
    if (negative || text.starts_with('+'))
        text.remove_prefix(1);
    int base = text.starts_with("0x") || text.starts_with("0X") ? 16 : 10;
    if (base == 16)
        text.remove_prefix(2);
    auto magnitude = wholeNumber<std::uint64_t>(text, base);
    constexpr auto signBit = std::uint64_t{1} << 63;
    if (!magnitude || (negative && *magnitude > signBit))
        return std::nullopt;
    if (!negative && *magnitude >= signBit)
        return PropertyList(static_cast<double>(*magnitude));
    return PropertyList(static_cast<std::int64_t>(negative ? ~*magnitude + 1 : *magnitude));
}

std::optional<PropertyList> realOf(std::string_view text) {
    if (text.starts_with('+') && !text.starts_with("+-"))
        text.remove_prefix(1);
    double number = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return PropertyList(number);
}

/// The one form that property lists have of ISO 8601, "2001-01-01T00:00:00Z".
std::optional<PropertyList> dateOf(std::string_view text) {
    constexpr std::string_view form = "dddd-dd-ddTdd:dd:ddZ";
    if (text.size() != form.size())
        return std::nullopt;
    for (std::size_t at = 0; at < form.size(); ++at) {
        bool isDigit = text[at] >= '0' && text[at] <= '9';
        if (form[at] == 'd' ? !isDigit : text[at] != form[at])
            return std::nullopt;
    }
    auto field = [&](std::size_t at) { return (text[at] - '0') * 10 + (text[at + 1] - '0'); };
    using namespace std::chrono;
    year_month_day day{year(field(0) * 100 + field(2)), month(static_cast<unsigned>(field(5))),
                       std::chrono::day(static_cast<unsigned>(field(8)))};
    if (!day.ok() || field(11) > 23 || field(14) > 59 || field(17) > 60)
        return std::nullopt;
    auto time = sys_days(day).time_since_epoch() + hours(field(11)) + minutes(field(14)) +
                seconds(field(17));
    return PropertyList(PropertyList::Date{static_cast<double>(seconds(time).count())});
}

std::optional<PropertyList> dataOf(std::string_view text) {
    QByteArray symbols;
    for (char c : text) {
        if (std::string_view(" \t\r\n").find(c) == std::string_view::npos)
            symbols += c;
    }
    if (symbols.size() % 4 != 0)
        return std::nullopt;
    auto decoded =
        QByteArray::fromBase64Encoding(std::move(symbols), QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        return std::nullopt;
    const auto* bytes = reinterpret_cast<const std::byte*>(decoded.decoded.constData());
    return PropertyList(PropertyList::Data(bytes, bytes + decoded.decoded.size()));
}

struct Leaf {
    QLatin1StringView name;
    std::optional<PropertyList> (*read)(std::string_view text);
};

constexpr Leaf leaves[] = {
    {QLatin1StringView("integer"), integerOf},
    {QLatin1StringView("real"), realOf},
    {QLatin1StringView("date"), dateOf},
    {QLatin1StringView("data"), dataOf},
    {QLatin1StringView("true"),
     [](std::string_view text) {
         return text.empty() ? std::optional(PropertyList(true)) : std::nullopt;
     }},
    {QLatin1StringView("false"),
     [](std::string_view text) {
         return text.empty() ? std::optional(PropertyList(false)) : std::nullopt;
     }},
};

class XmlParser {
  public:
    /// The text counts as UTF-8 whatever its declaration says.
    explicit XmlParser(std::string_view text)
        : reader_(QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()))) {
        reader_.setNamespaceProcessing(false);
    }

    ParsedPlist run() {
        PropertyList root;
        if (parseRoot(root))
            return {std::move(root), {}};
        auto why = error_.empty() ? reader_.errorString().toStdString() : error_;
        return {std::nullopt, why + " in line " + std::to_string(reader_.lineNumber())};
    }

  private:
    bool fail(const char* what) {
        if (error_.empty() && !reader_.hasError())
            error_ = what;
        return false;
    }

    bool isNamed(const char* name) const {
        return reader_.qualifiedName() == QLatin1StringView(name);
    }

    /// Goes on to the next tag or the end, over blanks and comments.
    bool next() {
        for (;;) {
            switch (reader_.readNext()) {
                case QXmlStreamReader::StartElement:
                case QXmlStreamReader::EndElement:
                case QXmlStreamReader::EndDocument:
                    return true;
                case QXmlStreamReader::Characters:
                    if (!reader_.isWhitespace())
                        return fail("text outside of a value");
                    break;
                case QXmlStreamReader::EntityReference:
                    return fail("an unknown entity");
                case QXmlStreamReader::Invalid:
                    return false;
                default:
                    break;
            }
        }
    }

    bool parseRoot(PropertyList& root) {
        if (!next())
            return false;
        bool isWrapped = isNamed("plist");
        if (isWrapped && (!next() || !reader_.isStartElement()))
            return fail("an empty property list");
        if (!parseValue(root, 0) || !next())
            return false;
        if (isWrapped && (!reader_.isEndElement() || !next()))
            return fail("a second value");
        return reader_.isEndDocument() || fail("a second root");
    }

    /// From the start tag to the end tag of a value.
    bool parseValue(PropertyList& value, int depth) {
        bool isDictionary = isNamed("dict");
        if (isDictionary || isNamed("array")) {
            if (depth == PlistLimits::nesting)
                return fail("nested too deep");
            return isDictionary ? parseDictionary(value, depth + 1) : parseArray(value, depth + 1);
        }
        if (isNamed("string")) {
            std::string text;
            if (!readText(text))
                return false;
            value = PropertyList(std::move(text));
            return true;
        }
        for (const auto& leaf : leaves) {
            if (reader_.qualifiedName() == leaf.name)
                return parseLeaf(leaf, value);
        }
        return fail("an unknown element");
    }

    bool parseLeaf(const Leaf& leaf, PropertyList& value) {
        std::string text;
        if (!readText(text))
            return false;
        auto read = leaf.read(trimmed(std::string_view(text)));
        if (!read)
            return fail("a malformed number, date or data");
        value = std::move(*read);
        return true;
    }

    bool parseDictionary(PropertyList& value, int depth) {
        PropertyList::Dictionary members;
        while (next()) {
            if (reader_.isEndElement()) {
                value = PropertyList(std::move(members));
                return true;
            }
            std::string key;
            if (!isNamed("key"))
                return fail("a key expected");
            if (!readText(key) || !next())
                return false;
            if (!reader_.isStartElement())
                return fail("a key without a value");
            PropertyList member;
            if (!parseValue(member, depth))
                return false;
            members.insert_or_assign(std::move(key), std::move(member));
        }
        return false;
    }

    bool parseArray(PropertyList& value, int depth) {
        PropertyList::Array elements;
        while (next()) {
            if (reader_.isEndElement()) {
                value = PropertyList(std::move(elements));
                return true;
            }
            elements.emplace_back();
            if (!parseValue(elements.back(), depth))
                return false;
        }
        return false;
    }

    /// From a start tag to its end tag.
    bool readText(std::string& text) {
        QString content;
        for (;;) {
            switch (reader_.readNext()) {
                case QXmlStreamReader::Characters:
                    content += reader_.text();
                    break;
                case QXmlStreamReader::EndElement:
                    text = content.toStdString();
                    return true;
                case QXmlStreamReader::Invalid:
                    return false;
                case QXmlStreamReader::Comment:
                case QXmlStreamReader::ProcessingInstruction:
                    break;
                default:
                    return fail("an element or entity inside of a text");
            }
        }
    }

    QXmlStreamReader reader_;
    std::string error_;
};

}  // namespace

ParsedPlist parseXmlPlist(std::string_view text) {
    if (auto why = refuseTags(text); !why.empty())
        return {std::nullopt, why};
    return XmlParser(text).run();
}

}  // namespace zelvo::platform
