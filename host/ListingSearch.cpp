#include "host/ListingSearch.h"

#include <algorithm>
#include <string>

namespace zelvo {

namespace {

constexpr auto None = std::string_view::npos;

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
    for (auto at = listing.find(needle); at != None; at = listing.find(needle, at + 1)) {
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
    for (auto at = listing.find(needle); at != None; at = listing.find(needle, at + 1)) {
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
