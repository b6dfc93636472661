#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "sealing/Secret.h"

namespace zelvo::sealing {

using LinkKey = Secret<16>;

/// What a user passes on: "zelvo://", who shares, "#", and the key, which no server sees.
struct ShareLink {
    std::string identifier;
    LinkKey key;
};

/// Why a text is no such link; the first that holds, in this order.
enum class NoLink {
    Empty,
    /// Longer than any link.
    TooLong,
    /// It does not begin with "zelvo://".
    OtherScheme,
    /// A link as it was before links had keys, or cut off by whatever it went through.
    NoKey,
    NoIdentifier,
    /// It holds what no identifier has.
    BadIdentifier,
    /// It is not 22 characters that stand for 16 bytes.
    BadKey,
};

inline constexpr std::size_t longestIdentifier = 128;

/// Takes the text as it is: what was typed or pasted is trimmed by whoever shows it.
std::variant<ShareLink, NoLink> parseLink(std::string_view text);
/// None where a link with this identifier could not be read again.
std::optional<std::string> linkText(const ShareLink& link);
LinkKey newLinkKey();

/// What both ends of a channel derive from the link that they share.
struct ChannelKey {
    explicit ChannelKey(const ShareLink& link);

    Key preShared;
    std::string prologue;
};

}  // namespace zelvo::sealing
