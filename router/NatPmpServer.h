#pragma once

#include "platform/linux/nat/codec/ByteOrder.h"
#include "router/MappingTable.h"

namespace zelvo::router {

/// The router's side of NAT-PMP (RFC 6886). Whoever asks gets mappings for the address that they
/// ask from, and for no other.
class NatPmpServer {
  public:
    NatPmpServer(MappingTable& table, Clock::time_point started)
        : table_(table), started_(started) {}

    /// The response, empty where the datagram deserves none.
    platform::Bytes answer(platform::ByteView datagram, std::uint32_t asker, Clock::time_point now);

  private:
    MappingTable& table_;
    Clock::time_point started_;
};

}  // namespace zelvo::router
