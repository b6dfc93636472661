#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/nat/base/NatNetwork.h"

namespace zelvo::platform {

inline constexpr Ipv4Endpoint SsdpGroup{0xeffffffa, 1900};

/// What a UPnP device says over UDP: an answer to a search, or an announcement of its own.
struct SsdpMessage {
    enum class Kind : std::uint8_t { Answer, Alive, Farewell };

    Kind kind = Kind::Answer;
    std::string location;
    /// Counts the device's restarts; empty where it does not.
    std::string bootId;

    /// Nothing for other datagrams, searches of others among them.
    static std::optional<SsdpMessage> parse(ByteView datagram);
    /// A search for one type of device or service, as a datagram. To the group, answers are spread
    /// over two seconds; to one host they come at once.
    static Bytes search(std::string_view type, const Ipv4Endpoint& to);
};

}  // namespace zelvo::platform
