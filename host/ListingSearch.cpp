#include "host/ListingSearch.h"

#include <algorithm>
#include <string>

namespace zelvo {

namespace {

constexpr std::size_t Block = 64;
constexpr auto None = std::string_view::npos;

/// string_view::find for long texts. A block in which three of the needle's characters never stand
/// at their distances is passed over without a branch for each byte, which compilers turn into
/// vector instructions: listings are full of the needle's first digit, where a search from digit to
/// digit stumbles.
std::size_t findIn(std::string_view text, std::string_view needle, std::size_t from) {
    const auto middle = needle.size() / 2;
    const auto last = needle.size() - 1;
    for (; from + Block + last <= text.size(); from += Block) {
        const char* at = text.data() + from;
        unsigned char candidates = 0;
        for (std::size_t i = 0; i < Block; ++i) {
            auto difference = (at[i] ^ needle[0]) | (at[i + middle] ^ needle[middle]) |
                              (at[i + last] ^ needle[last]);
            candidates |= static_cast<unsigned char>(difference == 0);
        }
        if (candidates == 0)
            continue;
        auto found = text.substr(from, Block + last).find(needle);
        if (found != None)
            return from + found;
    }
    return text.find(needle, from);
}

/// POSIX class "space", save the newline, which no line holds.
bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\v' || c == '\f' || c == '\r';
}

std::size_t lineBegin(std::string_view listing, std::size_t at) {
    auto before = listing.substr(0, at).rfind('\n');
    return before == None ? 0 : before + 1;
}

std::size_t lineEnd(std::string_view listing, std::size_t at) {
    return std::min(listing.find('\n', at), listing.size());
}

}  // namespace

bool listsWildcardListener(std::string_view listing, std::uint16_t port) {
    const auto needle = std::to_string(port);
    for (auto at = findIn(listing, needle, 0); at != None; at = findIn(listing, needle, at + 1)) {
        auto behind = at + needle.size();
        bool matches = at >= 2 && listing[at - 2] == '*' && listing[at - 1] != '\n' &&
                       behind < listing.size() && isSpace(listing[behind]);
        if (!matches)
            continue;
        auto begin = lineBegin(listing, at);
        auto end = lineEnd(listing, behind);
        if (listing.substr(begin, end - begin).find("LISTEN") != None)
            return true;
        at = end;
    }
    return false;
}

bool listsEstablishedConnection(std::string_view listing, std::uint16_t port) {
    const auto needle = std::to_string(port);
    for (auto at = findIn(listing, needle, 0); at != None; at = findIn(listing, needle, at + 1)) {
        if (at == 0 || listing[at - 1] == '\n')
            continue;
        auto behind = at + needle.size();
        auto end = lineEnd(listing, behind);
        if (listing.substr(behind, end - behind).find("ESTABLISHED") != None)
            return true;
        // The port once more in the same line would have even less behind it.
        at = end;
    }
    return false;
}

}  // namespace zelvo
