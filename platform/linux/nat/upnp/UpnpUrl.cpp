#include "platform/linux/nat/upnp/UpnpUrl.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>

namespace zelvo::platform {

namespace {

constexpr std::string_view Scheme = "http://";
constexpr std::size_t LongestUrl = 512;

bool isPlain(std::string_view text) {
    return text.size() <= LongestUrl &&
           std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < 0x7f; });
}

bool startsWithScheme(std::string_view text) {
    return text.size() >= Scheme.size() &&
           std::equal(Scheme.begin(), Scheme.end(), text.begin(), [](char expected, char c) {
               return expected == (c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c);
           });
}

}  // namespace

std::optional<UpnpUrl> UpnpUrl::parse(std::string_view text) {
    if (!isPlain(text) || !startsWithScheme(text)) {
        return std::nullopt;
    }
    text.remove_prefix(Scheme.size());
    const std::size_t slash = std::min(text.find('/'), text.size());
    const std::string_view authority = text.substr(0, slash);
    const std::size_t colon = std::min(authority.find(':'), authority.size());

    UpnpUrl url;
    url.path = slash < text.size() ? std::string(text.substr(slash)) : "/";
    url.server.port = 80;
    in_addr address{};
    if (inet_pton(AF_INET, std::string(authority.substr(0, colon)).c_str(), &address) != 1) {
        return std::nullopt;
    }
    url.server.address = ntohl(address.s_addr);
    if (colon < authority.size()) {
        const char* end = authority.data() + authority.size();
        const auto [last, error] =
            std::from_chars(authority.data() + colon + 1, end, url.server.port);
        if (error != std::errc() || last != end || url.server.port == 0) {
            return std::nullopt;
        }
    }
    return url;
}

std::optional<UpnpUrl> UpnpUrl::resolve(std::string_view reference) const {
    if (reference.find("://") != std::string_view::npos) {
        return parse(reference);
    }
    if (reference.empty() || !isPlain(reference)) {
        return std::nullopt;
    }
    UpnpUrl url = *this;
    if (reference.front() == '/') {
        url.path = reference;
    } else {
        url.path.erase(url.path.rfind('/') + 1);
        url.path += reference;
    }
    return url;
}

}  // namespace zelvo::platform
