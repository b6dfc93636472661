#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "platform/linux/base/TextEncoding.h"
#include "platform/linux/property_lists/PlistParsing.h"

namespace zelvo::platform {

namespace {

// Octal escapes name bytes of the NeXTSTEP character set; these are its bytes from 0x80 on.
constexpr std::array<char16_t, 128> nextStepHigh = {
    0x00A0, 0x00C0, 0x00C1, 0x00C2, 0x00C3, 0x00C4, 0x00C5, 0x00C7, 0x00C8, 0x00C9, 0x00CA, 0x00CB,
    0x00CC, 0x00CD, 0x00CE, 0x00CF, 0x00D0, 0x00D1, 0x00D2, 0x00D3, 0x00D4, 0x00D5, 0x00D6, 0x00D9,
    0x00DA, 0x00DB, 0x00DC, 0x00DD, 0x00DE, 0x00B5, 0x00D7, 0x00F7, 0x00A9, 0x00A1, 0x00A2, 0x00A3,
    0x2044, 0x00A5, 0x0192, 0x00A7, 0x00A4, 0x2019, 0x201C, 0x00AB, 0x2039, 0x203A, 0xFB01, 0xFB02,
    0x00AE, 0x2013, 0x2020, 0x2021, 0x00B7, 0x00A6, 0x00B6, 0x2022, 0x201A, 0x201E, 0x201D, 0x00BB,
    0x2026, 0x2030, 0x00AC, 0x00BF, 0x00B9, 0x02CB, 0x00B4, 0x02C6, 0x02DC, 0x00AF, 0x02D8, 0x02D9,
    0x00A8, 0x00B2, 0x02DA, 0x00B8, 0x00B3, 0x02DD, 0x02DB, 0x02C7, 0x2014, 0x00B1, 0x00BC, 0x00BD,
    0x00BE, 0x00E0, 0x00E1, 0x00E2, 0x00E3, 0x00E4, 0x00E5, 0x00E7, 0x00E8, 0x00E9, 0x00EA, 0x00EB,
    0x00EC, 0x00C6, 0x00ED, 0x00AA, 0x00EE, 0x00EF, 0x00F0, 0x00F1, 0x0141, 0x00D8, 0x0152, 0x00BA,
    0x00F2, 0x00F3, 0x00F4, 0x00F5, 0x00F6, 0x00E6, 0x00F9, 0x00FA, 0x00FB, 0x0131, 0x00FC, 0x00FD,
    0x0142, 0x00F8, 0x0153, 0x00DF, 0x00FE, 0x00FF, 0xFFFD, 0xFFFD};

int hexDigit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

bool isOctalDigit(char c) {
    return c >= '0' && c <= '7';
}

bool isBareCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("_$/:.-").find(c) != std::string_view::npos;
}

/// Dictionaries `{ key = value; }`, arrays `( a, b )`, data `<0a 1b>`, strings quoted with escapes
/// or bare, comments of both kinds. A string table is the inside of a dictionary without its
/// braces; an entry `key;` stands for `key = key;`.
class TextParser {
  public:
    explicit TextParser(std::string_view text) : text_(text) {}

    ParsedPlist run() {
        PropertyList root;
        if (!skipBlanks())
            return failure();
        if (atEnd()) {
            fail("the text is empty");
            return failure();
        }
        auto start = at_;
        if (!parseValue(root, 0) || !skipBlanks())
            return failure();
        if (atEnd())
            return {std::move(root), {}};
        if (!root.string()) {
            fail("text after the end");
            return failure();
        }
        at_ = start;
        PropertyList::Dictionary table;
        if (!parseEntries(table, 1))
            return failure();
        if (!atEnd()) {
            fail("a key expected");
            return failure();
        }
        return {PropertyList(std::move(table)), {}};
    }

  private:
    bool atEnd() const { return at_ >= text_.size(); }
    char peek(std::size_t ahead = 0) const {
        return at_ + ahead < text_.size() ? text_[at_ + ahead] : '\0';
    }
    bool isNext(char c) const { return !atEnd() && text_[at_] == c; }
    bool take(char c) {
        if (!isNext(c))
            return false;
        ++at_;
        return true;
    }

    bool fail(std::string_view what) {
        if (error_.empty()) {
            auto upTo = std::min(at_, text_.size());
            auto line = 1 + std::count(text_.begin(),
                                       text_.begin() + static_cast<std::ptrdiff_t>(upTo), '\n');
            error_ = std::string(what) + " in line " + std::to_string(line);
        }
        return false;
    }
    ParsedPlist failure() { return {std::nullopt, error_}; }

    bool skipBlanks() {
        for (;;) {
            auto rest = text_.substr(at_);
            if (!rest.empty() && std::string_view(" \t\n\r\v\f").find(rest[0]) != rest.npos) {
                ++at_;
            } else if (rest.starts_with("\xE2\x80\xA8") || rest.starts_with("\xE2\x80\xA9")) {
                at_ += 3;  // line and paragraph separators
            } else if (rest.starts_with("//")) {
                at_ = std::min(text_.find_first_of("\n\r", at_), text_.size());
            } else if (rest.starts_with("/*")) {
                auto end = text_.find("*/", at_ + 2);
                if (end == text_.npos)
                    return fail("a comment without an end");
                at_ = end + 2;
            } else {
                return true;
            }
        }
    }

    bool parseValue(PropertyList& value, int depth) {
        if (!skipBlanks())
            return false;
        char first = peek();
        if (first == '{' || first == '(') {
            if (depth >= PlistLimits::nesting)
                return fail("nested too deep");
            ++at_;
            return first == '{' ? parseDictionary(value, depth + 1) : parseArray(value, depth + 1);
        }
        if (first == '<')
            return parseData(value);
        std::string text;
        if (!parseString(text))
            return false;
        value = PropertyList(std::move(text));
        return true;
    }

    bool parseDictionary(PropertyList& value, int depth) {
        PropertyList::Dictionary members;
        if (!parseEntries(members, depth))
            return false;
        if (!take('}'))
            return fail("a key or } expected");
        value = PropertyList(std::move(members));
        return true;
    }

    /// Entries up to a closing brace or the end.
    bool parseEntries(PropertyList::Dictionary& members, int depth) {
        for (;;) {
            if (!skipBlanks())
                return false;
            if (atEnd() || isNext('}'))
                return true;
            std::string key;
            if (!parseString(key) || !skipBlanks())
                return false;
            PropertyList value(key);
            if (take('=') && (!parseValue(value, depth) || !skipBlanks()))
                return false;
            if (!take(';'))
                return fail("; expected");
            members.insert_or_assign(std::move(key), std::move(value));
        }
    }

    bool parseArray(PropertyList& value, int depth) {
        PropertyList::Array elements;
        for (;;) {
            if (!skipBlanks())
                return false;
            if (take(')'))
                break;
            PropertyList element;
            if (!parseValue(element, depth) || !skipBlanks())
                return false;
            elements.push_back(std::move(element));
            if (!take(',') && !isNext(')'))
                return fail(", or ) expected");
        }
        value = PropertyList(std::move(elements));
        return true;
    }

    bool parseData(PropertyList& value) {
        ++at_;
        PropertyList::Data data;
        int high = -1;
        for (; !isNext('>'); ++at_) {
            if (atEnd())
                return fail("data without an end");
            if (std::string_view(" \t\n\r").find(peek()) != std::string_view::npos)
                continue;
            int digit = hexDigit(peek());
            if (digit < 0)
                return fail("a hexadecimal digit expected");
            if (high < 0) {
                high = digit;
            } else {
                data.push_back(static_cast<std::byte>(high * 16 + digit));
                high = -1;
            }
        }
        if (high >= 0)
            return fail("half a byte of data");
        ++at_;
        value = PropertyList(std::move(data));
        return true;
    }

    bool parseString(std::string& text) {
        if (isNext('"') || isNext('\''))
            return parseQuoted(text);
        auto start = at_;
        while (!atEnd() && isBareCharacter(peek()))
            ++at_;
        if (at_ == start)
            return fail(atEnd() ? "the text ends too early" : "an unexpected character");
        text.assign(text_.substr(start, at_ - start));
        return true;
    }

    bool parseQuoted(std::string& text) {
        char quote = text_[at_++];
        for (;;) {
            if (atEnd())
                return fail("a string without an end");
            char c = text_[at_++];
            if (c == quote)
                return true;
            if (c != '\\')
                text += c;
            else if (!parseEscape(text))
                return false;
        }
    }

    bool parseEscape(std::string& text) {
        if (atEnd())
            return fail("a string without an end");
        char c = text_[at_++];
        constexpr std::string_view names = "abfnrtv";
        constexpr std::string_view meanings = "\a\b\f\n\r\t\v";
        if (auto found = names.find(c); found != names.npos)
            text += meanings[found];
        else if (c == 'U')
            parseUnicode(text);
        else if (isOctalDigit(c))
            parseOctal(text, c);
        else
            text += c;
        return true;
    }

    void parseOctal(std::string& text, char first) {
        unsigned byte = static_cast<unsigned>(first - '0');
        for (int digits = 1; digits < 3 && isOctalDigit(peek()); ++digits)
            byte = byte * 8 + static_cast<unsigned>(text_[at_++] - '0');
        byte &= 0xFF;
        appendUtf8(text, byte < 0x80 ? byte : nextStepHigh[byte - 0x80]);
    }

    char32_t unit() {
        char32_t value = 0;
        for (int digits = 0; digits < 4 && hexDigit(peek()) >= 0; ++digits)
            value = value * 16 + static_cast<char32_t>(hexDigit(text_[at_++]));
        return value;
    }

    void parseUnicode(std::string& text) {
        auto value = unit();
        if (value >= 0xD800 && value < 0xDC00 && peek() == '\\' && peek(1) == 'U') {
            auto back = at_;
            at_ += 2;
            auto low = unit();
            if (low >= 0xDC00 && low <= 0xDFFF)
                value = 0x10000 + ((value - 0xD800) << 10) + (low - 0xDC00);
            else
                at_ = back;
        }
        appendUtf8(text, value);
    }

    std::string_view text_;
    std::size_t at_ = 0;
    std::string error_;
};

}  // namespace

ParsedPlist parseTextPlist(std::string_view text) {
    return TextParser(text).run();
}

}  // namespace zelvo::platform
