#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/nat/Routes.h"
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

    Conversations(NatNetwork& network, const Routes& routes, const Options& options)
        : network_(network), routes_(routes), options_(options) {}

    /// `known` is what may be mapped already.
    std::vector<std::unique_ptr<RouterMapping>> make(
        const RouterRoute& route, const PortWish& wish,
        const std::map<int, MappingRecord>& known) const;
    /// The withdrawal of what nobody holds any more, on whatever router it was made; nothing where
    /// that one is out of reach, or would take this host for another one.
    std::unique_ptr<RouterMapping> makeWithdrawal(const MappingRecord& record) const;
    std::optional<RouterRoute> readRoute() const;
    /// True where the router is found by itself, and so may be heard by what it announces.
    bool isOnNetwork() const { return !options_.router; }

  private:
    PcpNonces pcpNonces(const RouterRoute& route, const PortWish& wish,
                        const std::map<int, MappingRecord>& known) const;
    std::optional<RouterRoute> wayTo(const MappingRecord& record) const;
    Ipv4Endpoint server(const RouterRoute& route) const;
    bool speaksUpnp() const;

    NatNetwork& network_;
    const Routes& routes_;
    Options options_;
};

}  // namespace zelvo::platform
