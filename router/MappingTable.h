#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <tuple>

#include "platform/linux/nat/codec/PortControl.h"
#include "router/Forwarding.h"

namespace zelvo::router {

using platform::Transport;

/// Everything that is mapped. TCP is forwarded; a UDP mapping reserves its port and no more.
class MappingTable {
  public:
    /// Hears one line for each change.
    using Report = std::function<void(const std::string&)>;

    MappingTable(EventLoop& loop, std::uint32_t externalAddress, Report report)
        : loop_(loop), externalAddress_(externalAddress), report_(std::move(report)) {}

    /// Makes or renews the mapping of `internal` and returns its external port, which is the wished
    /// one where that can be had; 0 where none can, or where the table is full.
    std::uint16_t map(Transport transport, const Endpoint& internal, std::uint16_t wish,
                      std::chrono::seconds lifetime, Clock::time_point now);
    /// Internal port 0 stands for all of that address.
    void remove(Transport transport, const Endpoint& internal);
    void expire(Clock::time_point now);

    Clock::time_point nextExpiry() const;
    std::uint32_t externalAddress() const { return externalAddress_; }
    /// "Mappings: N", and a line each.
    std::string text(Clock::time_point now) const;

  private:
    struct Mapping {
        std::uint16_t externalPort = 0;
        Clock::time_point expiresAt;
        /// Of UDP the bound socket alone, which keeps the port.
        platform::FileDescriptor reservation;
        std::unique_ptr<Forwarding> forwarding;
    };
    using Key = std::tuple<Transport, Endpoint>;
    using Mappings = std::map<Key, Mapping>;

    bool open(const Key& key, Mapping& mapping, std::uint16_t wish);
    bool isExternal(const Endpoint& internal) const;
    Mappings::iterator end(Mappings::iterator mapping, const char* how);
    std::string line(const Key& key, const Mapping& mapping) const;

    EventLoop& loop_;
    std::uint32_t externalAddress_;
    Report report_;
    Mappings mappings_;
};

}  // namespace zelvo::router
