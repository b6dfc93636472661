#include "platform/terminal/Encoding.h"

#include <iconv.h>
#include <langinfo.h>

#include <clocale>

namespace zelvo::platform {

namespace {

constexpr const char* Utf8 = "UTF-8";

std::string environmentsEncoding() {
    auto locale = ::newlocale(LC_CTYPE_MASK, "", nullptr);
    if (!locale)
        return "ANSI_X3.4-1968";
    std::string name = ::nl_langinfo_l(CODESET, locale);
    ::freelocale(locale);
    return name;
}

std::string converted(const std::string& text, const std::string& from, const std::string& to) {
    auto conversion = ::iconv_open((to + "//TRANSLIT").c_str(), from.c_str());
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the failure that POSIX names
    if (conversion == reinterpret_cast<iconv_t>(-1))
        return text;
    std::string result;
    std::string source = text;
    char* in = source.data();
    std::size_t left = source.size();
    while (left > 0) {
        char buffer[256];
        char* out = buffer;
        std::size_t room = sizeof buffer;
        const auto outcome = ::iconv(conversion, &in, &left, &out, &room);
        const bool isFull = room < sizeof buffer;
        result.append(buffer, sizeof buffer - room);
        if (outcome != static_cast<std::size_t>(-1) || isFull)
            continue;
        result += '?';
        ++in;
        --left;
    }
    ::iconv_close(conversion);
    return result;
}

}  // namespace

Encoding::Encoding() : name_(environmentsEncoding()), isUtf8_(name_ == Utf8) {}

std::string Encoding::encoded(const std::string& text) const {
    return isUtf8_ ? text : converted(text, Utf8, name_);
}

std::string Encoding::decoded(const std::string& text) const {
    return isUtf8_ ? text : converted(text, name_, Utf8);
}

}  // namespace zelvo::platform
