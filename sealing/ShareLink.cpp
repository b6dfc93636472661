#include "sealing/ShareLink.h"

#include <algorithm>

#include "sealing/Base64.h"
#include "sealing/Primitives.h"

namespace zelvo::sealing {

namespace {

using namespace std::string_view_literals;

constexpr auto scheme = "zelvo://"sv;
constexpr std::size_t keyDigits = 22;
constexpr auto version = "zelvo/1"sv;

/// RFC 3986's unreserved characters: nothing on a link's way has a reason to change them.
bool isUnreserved(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           "-._~"sv.find(c) != std::string_view::npos;
}

bool isIdentifier(std::string_view text) {
    return !text.empty() && text.size() <= longestIdentifier &&
           std::all_of(text.begin(), text.end(), isUnreserved);
}

}  // namespace

std::variant<ShareLink, NoLink> parseLink(std::string_view text) {
    if (text.empty())
        return NoLink::Empty;
    if (text.size() > scheme.size() + longestIdentifier + 1 + keyDigits)
        return NoLink::TooLong;
    if (!text.starts_with(scheme))
        return NoLink::OtherScheme;
    text.remove_prefix(scheme.size());
    const auto hash = text.find('#');
    if (hash == std::string_view::npos || hash + 1 == text.size())
        return NoLink::NoKey;
    const auto identifier = text.substr(0, hash);
    if (identifier.empty())
        return NoLink::NoIdentifier;
    if (!isIdentifier(identifier))
        return NoLink::BadIdentifier;
    auto key = decodeBase64(text.substr(hash + 1), Base64::ForLinks);
    if (!key || key->size() != LinkKey::size)
        return NoLink::BadKey;
    ShareLink link{std::string(identifier), {}};
    std::copy(key->begin(), key->end(), link.key.bytes().begin());
    wipe({reinterpret_cast<unsigned char*>(key->data()), key->size()});
    return link;
}

std::optional<std::string> linkText(const ShareLink& link) {
    if (!isIdentifier(link.identifier))
        return std::nullopt;
    return std::string(scheme) + link.identifier + '#' +
           encodeBase64(link.key.view(), Base64::ForLinks);
}

LinkKey newLinkKey() {
    LinkKey key;
    fillWithRandom(key.bytes());
    return key;
}

ChannelKey::ChannelKey(const ShareLink& link)
    // No identifier holds a NUL, so that no other pair reads the same.
    : prologue(std::string(version) + '\0' + link.identifier) {
    hkdf(version, link.key.view(), "channel", preShared.bytes());
}

}  // namespace zelvo::sealing
