#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zelvo::opener {

/// A key of the host's desktop, by the number that its preferences give it: 32 shows all windows,
/// 33 those of one application, 64 searches, 79 and 81 go one workspace to the left and to the
/// right.
struct HostHotKey {
    int number = 0;
    /// Keysyms: modifiers in the order in which they are pressed, then the key.
    std::vector<std::uint32_t> keys;

    friend bool operator==(const HostHotKey&, const HostHotKey&) = default;
};

/// A corner of the host's screen that does something when the pointer goes there.
struct HostCorner {
    enum class Place : std::uint8_t { TopLeft, TopRight, BottomLeft, BottomRight };

    Place place = Place::TopLeft;
    /// The number that the host's preferences give the action.
    std::int64_t action = 0;
    /// Keysyms that have to be held meanwhile.
    std::vector<std::uint32_t> modifiers;

    friend bool operator==(const HostCorner&, const HostCorner&) = default;
};

/// What the sharing service tells about a host. Everything in it is the service's word: fit to be
/// shown and tried, proof of nothing.
struct HostFacts {
    /// One line that can be shown; never empty.
    std::string name;
    /// IPv4, dotted decimal.
    std::string address;
    std::uint16_t port = 0;
    /// The relay to go to instead, "name" or "name:port", where `port` is the host's number; empty
    /// for a host that is at the address itself.
    std::string relay{};
    /// The service has seen the host at that address.
    bool addressIsProven = false;
    /// Identifier of the host's keyboard layout, such as "com.apple.keylayout.German"; empty where
    /// it gives none.
    std::string layout;
    /// Of the host's system, such as "12.0.0".
    std::string osVersion;
    /// By their number.
    std::vector<HostHotKey> hotKeys;
    std::vector<HostCorner> corners;

    friend bool operator==(const HostFacts&, const HostFacts&) = default;
};

}  // namespace zelvo::opener
