#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "serving/ClientAddress.h"

namespace zelvo::serving {

/// What a proxy says before a client's own bytes: the PROXY protocol, version 1 (a line) or 2 (a
/// block of bytes).
struct ProxyHeader {
    enum class State { Incomplete, Complete, Malformed };

    /// Longest header that is waited for; version 2 may have extensions after the addresses.
    static constexpr std::size_t Longest = 536;

    static ProxyHeader read(std::string_view bytes);

    State state = State::Incomplete;
    std::size_t length = 0;  ///< when complete
    /// Nothing where the proxy speaks for itself or for a client that has no such address.
    std::optional<ClientAddress> client;
};

}  // namespace zelvo::serving
