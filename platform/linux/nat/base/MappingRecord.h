#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/nat/base/NatNetwork.h"
#include "platform/linux/nat/codec/PcpCodec.h"

namespace zelvo::platform {

/// What it takes to withdraw a mapping that somebody else has made.
struct MappingRecord {
    std::string protocol;
    Ipv4Endpoint router;
    std::uint32_t localAddress = 0;
    std::uint16_t internalPort = 0;
    /// Those that may have been granted.
    std::vector<std::uint16_t> externalPorts;
    bool tcp = false;
    bool udp = false;
    PcpNonces nonces;
    /// Seconds since 1970.
    std::int64_t writtenAt = 0;

    /// Withdrawing this one withdraws the other, too.
    bool covers(const MappingRecord& other) const;

    /// One line of text, without its end; nothing for what is none.
    std::string text() const;
    static std::optional<MappingRecord> parse(const std::string& line);
};

}  // namespace zelvo::platform
