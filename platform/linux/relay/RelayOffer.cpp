#include "platform/linux/relay/RelayOffer.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstddef>

namespace zelvo::platform {

namespace {

constexpr std::size_t LongestPlace = 259;
constexpr auto Patience = std::chrono::seconds(15);

std::string text(const PropertyList& reply, std::string_view key) {
    const auto* value = reply.find(key);
    return value && value->string() ? *value->string() : std::string();
}

std::uint32_t addressIn(const PropertyList& reply, std::string_view key) {
    in_addr parsed{};
    return ::inet_pton(AF_INET, text(reply, key).c_str(), &parsed) == 1 ? parsed.s_addr : 0;
}

/// It becomes part of an address to connect to, and of what is shown.
bool isPlace(std::string_view text) {
    return !text.empty() && text.size() <= LongestPlace && std::ranges::all_of(text, [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '.' || c == '-' || c == ':';
    });
}

}  // namespace

std::optional<RelayOffer> RelayOffer::of(const std::optional<PropertyList>& reply) {
    const auto* status = reply ? reply->find("StatusCode") : nullptr;
    if (!status || status->integerReading() != 0)
        return std::nullopt;
    RelayOffer offer{text(*reply, "Relay"), addressIn(*reply, "RelayAddress"),
                     addressIn(*reply, "ClientAddress"), text(*reply, "Ticket")};
    if (!isPlace(offer.relay) || offer.address == 0 || offer.ticket.empty())
        return std::nullopt;
    return offer;
}

UrlRequest RelayOffer::request(const std::string& origin, std::string_view wanted) {
    UrlRequest request;
    request.url = origin + "/app/4.8.1/sharing/relay.php";
    request.cachePolicy = CachePolicy::ReloadIgnoringLocalCacheData;
    request.timeout = Patience;
    request.method = "POST";
    request.headers = {{"Content-Type", "application/x-www-form-urlencoded"}};
    std::string form = "Relay=";
    for (const char c : wanted)
        form += c == ':' ? "%3A" : std::string(1, c);
    std::ranges::transform(form, std::back_inserter(request.body),
                           [](char c) { return static_cast<std::byte>(c); });
    return request;
}

}  // namespace zelvo::platform
