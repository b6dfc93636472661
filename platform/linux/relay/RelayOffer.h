#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/PropertyList.h"
#include "platform/UrlSession.h"

namespace zelvo::platform {

/// What the sharing service says to who wants to be reached through a relay.
struct RelayOffer {
    /// "name" or "name:port".
    std::string relay;
    /// IPv4, of the relay and of this host as the service sees it; network byte order. The latter
    /// is 0 where it sees none.
    std::uint32_t address = 0;
    std::uint32_t seenFrom = 0;
    std::string ticket;

    /// None where the reply offers nothing that could be used.
    static std::optional<RelayOffer> of(const std::optional<PropertyList>& reply);
    /// The question, at a service by its origin; `wanted` is the relay that was offered before, or
    /// empty.
    static UrlRequest request(const std::string& origin, std::string_view wanted);
};

}  // namespace zelvo::platform
