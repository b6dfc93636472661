#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/nat/RouteMonitor.h"
#include "platform/linux/nat/base/NatNetwork.h"
#include "platform/linux/nat/base/RouterMapping.h"

namespace zelvo::platform {

/// Begins the conversations with a router, one for each protocol that is switched on.
class Conversations {
  public:
    struct Options {
        /// Nothing for the gateway of the default route.
        std::optional<Ipv4Endpoint> router;
        bool pcp = true;
        bool natPmp = true;
        bool upnp = true;
    };

    Conversations(NatNetwork& network, const Options& options)
        : network_(network), options_(options) {}

    /// `known` is what may be mapped already.
    std::vector<std::unique_ptr<RouterMapping>> make(
        const RouterRoute& route, const PortWish& wish,
        const std::map<int, MappingRecord>& known) const;
    /// The withdrawal of what an earlier run has left; nothing where the record does not fit the
    /// router that there is.
    std::unique_ptr<RouterMapping> makeWithdrawal(const RouterRoute& route,
                                                  const MappingRecord& record) const;
    std::optional<RouterRoute> readRoute() const;
    /// True where the router is found by itself, and so may be heard by what it announces.
    bool isOnNetwork() const { return !options_.router; }

  private:
    PcpNonces pcpNonces(const RouterRoute& route, const PortWish& wish,
                        const std::map<int, MappingRecord>& known) const;
    Ipv4Endpoint server(const RouterRoute& route) const;
    bool speaksUpnp() const;

    NatNetwork& network_;
    Options options_;
};

}  // namespace zelvo::platform
