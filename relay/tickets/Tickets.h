#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "relay/tickets/Ed25519.h"

namespace zelvo::relay {

/// Seconds since 1970.
using Moment = std::int64_t;

inline constexpr std::size_t PseudonymBytes = 16;

/// By which a service sends a host to a relay. Signed, so that the relay asks nobody.
struct Ticket {
    static constexpr Moment ValidFor = 10 * 60;
    static constexpr std::size_t LongestName = 253;

    Moment end = 0;
    std::string owner;  ///< a pseudonym
    std::string relay;  ///< the name of whom it is for

    /// Empty when it cannot be signed.
    std::string sealed(const Ed25519& key) const;
    /// Nothing unless one of the keys has signed it; whether it is over is the caller's to see.
    static std::optional<Ticket> read(std::string_view text, std::span<const Ed25519> keys);
};

/// By which a host has its number again. Signed by the relay for itself.
struct Lease {
    static constexpr Moment ValidFor = 48 * 3600;

    Moment end = 0;
    std::string host;  ///< which of the relay's hosts, as it named it
    int number = 0;

    std::string sealed(const Ed25519& key) const;
    static std::optional<Lease> read(std::string_view text, const Ed25519& key);
};

/// Whom a relay of this name takes an owner for, by the SHA-256 of the owner's secret.
std::string pseudonymOf(std::string_view owner, std::string_view relay);
/// For somebody who is nobody's owner yet.
std::string freshPseudonym();

}  // namespace zelvo::relay
