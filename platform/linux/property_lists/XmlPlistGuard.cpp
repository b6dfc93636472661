#include "platform/linux/property_lists/XmlPlistGuard.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <utility>
#include <vector>

namespace zelvo::platform {

namespace {

constexpr std::string_view blanks = " \t\r\n";

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
bool isBlank(char c) {
    return blanks.find(c) != blanks.npos;
}

std::string_view trimmed(std::string_view text) {
    auto first = text.find_first_not_of(blanks);
    if (first == text.npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

template <typename Number>
bool isWhole(std::string_view text, int base) {
    Number number{};
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    return error == std::errc() && end == text.data() + text.size();
}

bool isInteger(std::string_view text) {
    text = trimmed(text);
    bool negative = text.starts_with('-');
    if (negative || text.starts_with('+'))
        text.remove_prefix(1);
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
        base = 16;
    }
    if (text.empty() || text[0] == '-')
        return false;
    return negative ? isWhole<std::int64_t>("-" + std::string(text), base)
                    : isWhole<std::uint64_t>(text, base);
}

bool isReal(std::string_view text) {
    text = trimmed(text);
    if (text.starts_with('-') || text.starts_with('+'))
        text.remove_prefix(1);
    if (text == "nan" || text == "inf" || text == "infinity")
        return true;
    double number = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return !text.empty() && (isDigit(text[0]) || text[0] == '.') && error == std::errc() &&
           end == text.data() + text.size();
}

/// The one form that property lists have of ISO 8601, "2001-01-01T00:00:00Z".
bool isDate(std::string_view text) {
    constexpr std::string_view form = "dddd-dd-ddTdd:dd:ddZ";
    text = trimmed(text);
    if (text.size() != form.size())
        return false;
    for (std::size_t at = 0; at < form.size(); ++at) {
        if (form[at] == 'd' ? !isDigit(text[at]) : text[at] != form[at])
            return false;
    }
    auto field = [&](std::size_t at) { return (text[at] - '0') * 10 + (text[at + 1] - '0'); };
    return field(0) * 100 + field(2) >= 1 && field(5) >= 1 && field(5) <= 12 && field(8) >= 1 &&
           field(8) <= 31 && field(11) <= 23 && field(14) <= 59 && field(17) <= 60;
}

bool isBase64(std::string_view text) {
    std::size_t symbols = 0;
    std::size_t pads = 0;
    for (char c : text) {
        if (isBlank(c))
            continue;
        ++symbols;
        if (c == '=')
            ++pads;
        else if (pads > 0 || !((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || isDigit(c) ||
                               c == '+' || c == '/'))
            return false;
    }
    return symbols % 4 == 0 && pads <= 2;
}

/// The inside of a reference, between & and ;.
bool isReference(std::string_view name) {
    if (!name.starts_with('#'))
        return name == "lt" || name == "gt" || name == "amp" || name == "quot" || name == "apos";
    bool hexadecimal = name.starts_with("#x");
    name.remove_prefix(hexadecimal ? 2 : 1);
    std::uint32_t code = 0;
    auto [end, error] =
        std::from_chars(name.data(), name.data() + name.size(), code, hexadecimal ? 16 : 10);
    return error == std::errc() && end == name.data() + name.size() && code > 0 &&
           code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
}

enum class Kind { Plist, Dictionary, Array, Key, String, Integer, Real, Boolean, Date, Data };

const std::pair<std::string_view, Kind> elementKinds[] = {
    {"plist", Kind::Plist}, {"dict", Kind::Dictionary}, {"array", Kind::Array},
    {"key", Kind::Key},     {"string", Kind::String},   {"integer", Kind::Integer},
    {"real", Kind::Real},   {"true", Kind::Boolean},    {"false", Kind::Boolean},
    {"date", Kind::Date},   {"data", Kind::Data}};

class Guard {
  public:
    Guard(std::string_view text, int nestingLimit) : text_(text), nestingLimit_(nestingLimit) {}

    std::string run() {
        if (text_.find('\0') != text_.npos)
            return "a NUL character";
        while (error_.empty() && at_ < text_.size())
            step();
        if (error_.empty() && (!open_.empty() || !rootSeen_))
            fail("the text ends too early");
        return error_;
    }

  private:
    struct Element {
        Kind kind;
        std::string_view name;
        bool awaitsValue = false;  // a dictionary after a key
        bool filled = false;       // a plist after its value
    };

    bool fail(std::string_view what) {
        if (error_.empty())
            error_ = std::string(what) + " at byte " + std::to_string(at_);
        return false;
    }

    std::string_view rest() const { return text_.substr(at_); }

    bool skipPast(std::string_view mark, std::size_t from) {
        auto found = text_.find(mark, at_ + from);
        if (found == text_.npos)
            return fail("markup without an end");
        at_ = found + mark.size();
        return true;
    }

    /// Comments and processing instructions, which may stand anywhere between elements.
    bool skipMisc() {
        if (rest().starts_with("<!--"))
            return skipPast("-->", 4);
        return skipPast("?>", 2);
    }
    bool atMisc() const { return rest().starts_with("<!--") || rest().starts_with("<?"); }

    /// One thing between leaves: blanks, a comment, a tag.
    void step() {
        if (isBlank(text_[at_]))
            ++at_;
        else if (atMisc())
            skipMisc();
        else if (rest().starts_with("<!DOCTYPE") && open_.empty() && !rootSeen_)
            skipDoctype();
        else if (rest().starts_with("</"))
            closeElement();
        else if (text_[at_] == '<')
            openElement();
        else
            fail("text outside of a value");
    }

    void skipDoctype() {
        auto end = rest().find('>');
        // An internal subset could declare entities of its own.
        if (rest().substr(0, end).find('[') != std::string_view::npos)
            fail("a document type with declarations");
        else
            skipPast(">", 0);
    }

    std::string_view takeName() {
        auto start = at_;
        while (at_ < text_.size() && ((text_[at_] >= 'a' && text_[at_] <= 'z') ||
                                      (text_[at_] >= 'A' && text_[at_] <= 'Z')))
            ++at_;
        return text_.substr(start, at_ - start);
    }

    void closeElement() {
        at_ += 2;
        auto name = takeName();
        if (open_.empty() || open_.back().name != name)
            return void(fail("an end tag without its start"));
        auto closed = open_.back();
        if (closed.awaitsValue)
            return void(fail("a key without a value"));
        if (closed.kind == Kind::Plist && !closed.filled)
            return void(fail("an empty property list"));
        if (!endTag())
            return;
        open_.pop_back();
        if (closed.kind == Kind::Dictionary || closed.kind == Kind::Array)
            --depth_;
    }

    bool endTag() {
        while (at_ < text_.size() && isBlank(text_[at_]))
            ++at_;
        if (at_ >= text_.size() || text_[at_] != '>')
            return fail("> expected");
        ++at_;
        return true;
    }

    void openElement() {
        ++at_;
        auto name = takeName();
        auto known = std::find_if(std::begin(elementKinds), std::end(elementKinds),
                                  [&](const auto& entry) { return entry.first == name; });
        if (known == std::end(elementKinds))
            return void(fail("an unknown element"));
        auto kind = known->second;
        if (!admit(kind))
            return;
        auto end = text_.find_first_of("<>", at_);
        if (end == text_.npos || text_[end] != '>')
            return void(fail("a tag without an end"));
        bool isEmpty = text_[end - 1] == '/';
        bool hasAttributes = end > at_ && !isBlank(text_[at_]) && text_[at_] != '/';
        if (hasAttributes)
            return void(fail("an unknown element"));
        at_ = end + 1;
        if (kind == Kind::Plist || kind == Kind::Dictionary || kind == Kind::Array)
            openContainer(kind, name, isEmpty);
        else
            leaf(kind, name, isEmpty);
    }

    /// Whether an element of the kind may stand here.
    bool admit(Kind kind) {
        if (open_.empty()) {
            if (rootSeen_)
                return fail("a second root");
            rootSeen_ = true;
            return kind != Kind::Key || fail("a key outside of a dictionary");
        }
        auto& parent = open_.back();
        if (kind == Kind::Plist)
            return fail("a property list inside of another");
        if (kind == Kind::Key && parent.kind != Kind::Dictionary)
            return fail("a key outside of a dictionary");
        if (parent.kind == Kind::Plist)
            return !std::exchange(parent.filled, true) || fail("a second value");
        if (parent.kind == Kind::Dictionary) {
            if ((kind == Kind::Key) == parent.awaitsValue)
                return fail("keys and values do not take turns");
            parent.awaitsValue = kind == Kind::Key;
        }
        return true;
    }

    void openContainer(Kind kind, std::string_view name, bool isEmpty) {
        if (isEmpty) {
            if (kind == Kind::Plist)
                fail("an empty property list");
            return;
        }
        if (kind != Kind::Plist && ++depth_ > nestingLimit_)
            return void(fail("nested too deep"));
        open_.push_back({kind, name});
    }

    void leaf(Kind kind, std::string_view name, bool isEmpty) {
        std::string content;
        if (!isEmpty && !leafContent(kind, name, content))
            return;
        bool good = kind == Kind::Integer   ? isInteger(content)
                    : kind == Kind::Real    ? isReal(content)
                    : kind == Kind::Date    ? isDate(content)
                    : kind == Kind::Data    ? isBase64(content)
                    : kind == Kind::Boolean ? trimmed(content).empty()
                                            : true;
        if (!good)
            fail("a malformed " + std::string(name));
    }

    /// Up to and with the end tag. Only strings and keys may hold more than plain characters.
    bool leafContent(Kind kind, std::string_view name, std::string& content) {
        bool isText = kind == Kind::String || kind == Kind::Key;
        for (;;) {
            auto next = text_.find_first_of("<&", at_);
            if (next == text_.npos)
                return fail("the text ends too early");
            if (!isText)
                content += text_.substr(at_, next - at_);
            at_ = next;
            if (rest().starts_with("</"))
                break;
            if (!isText)
                return fail("markup inside of a number, date or data");
            if (text_[at_] == '&') {
                auto end = text_.find(';', at_);
                if (end == text_.npos || !isReference(text_.substr(at_ + 1, end - at_ - 1)))
                    return fail("an unknown reference");
                at_ = end + 1;
            } else if (rest().starts_with("<![CDATA[")) {
                if (!skipPast("]]>", 9))
                    return false;
            } else if (!atMisc()) {
                return fail("an element inside of a text");
            } else if (!skipMisc()) {
                return false;
            }
        }
        at_ += 2;
        return takeName() == name ? endTag() : fail("an end tag without its start");
    }

    std::string_view text_;
    int nestingLimit_;
    std::size_t at_ = 0;
    int depth_ = 0;
    bool rootSeen_ = false;
    std::vector<Element> open_;
    std::string error_;
};

}  // namespace

std::string refuseXmlPlist(std::string_view text, int nestingLimit) {
    return Guard(text, nestingLimit).run();
}

}  // namespace zelvo::platform
