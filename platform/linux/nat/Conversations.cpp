#include "platform/linux/nat/Conversations.h"

#include <algorithm>

#include "platform/linux/nat/port_control/NatPmpWire.h"
#include "platform/linux/nat/port_control/PcpWire.h"
#include "platform/linux/nat/port_control/PortControlMapping.h"
#include "platform/linux/nat/upnp/UpnpMapping.h"

namespace zelvo::platform {

namespace {

PortControlMapping::MakeWire makePcp(std::uint16_t internalPort, const PcpNonces& nonces) {
    return [internalPort, nonces](std::uint32_t localAddress) {
        return std::make_unique<PcpWire>(internalPort, localAddress, nonces);
    };
}

PortControlMapping::MakeWire makeNatPmp(std::uint16_t internalPort) {
    return [internalPort](std::uint32_t) { return std::make_unique<NatPmpWire>(internalPort); };
}

}  // namespace

std::vector<std::unique_ptr<RouterMapping>> Conversations::make(
    const RouterRoute& route, const PortWish& wish,
    const std::map<int, MappingRecord>& known) const {
    std::vector<std::unique_ptr<RouterMapping>> made;
    if (options_.pcp) {
        made.push_back(std::make_unique<PortControlMapping>(
            network_, server(route), route.localAddress, wish,
            makePcp(wish.internalPort, pcpNonces(route, wish, known))));
    }
    if (options_.natPmp) {
        made.push_back(std::make_unique<PortControlMapping>(
            network_, server(route), route.localAddress, wish, makeNatPmp(wish.internalPort)));
    }
    if (speaksUpnp()) {
        const GatewayPlace place{route.router, route.localAddress, isOnNetwork()};
        made.push_back(std::make_unique<UpnpMapping>(network_, place, wish));
    }
    return made;
}

std::unique_ptr<RouterMapping> Conversations::makeWithdrawal(const MappingRecord& record) const {
    const auto route = wayTo(record);
    if (!route) {
        return nullptr;
    }
    PortWish wish;
    wish.internalPort = record.internalPort;
    wish.externalPort = record.externalPorts.empty() ? 0 : record.externalPorts.front();
    wish.tcp = record.tcp;
    wish.udp = record.udp;
    if (record.protocol == "UPnP" && speaksUpnp() && !record.externalPorts.empty()) {
        // Many gateways take orders about an entry from the address alone that it leads to.
        const bool asBefore = routes_.isOwnAddress(record.localAddress);
        const GatewayPlace place{
            route->router, asBefore ? record.localAddress : route->localAddress, isOnNetwork()};
        auto mapping = std::make_unique<UpnpMapping>(network_, place, wish);
        mapping->recover(record.localAddress, record.externalPorts);
        return mapping;
    }
    // The others know an owner by the address that it asks from.
    if (!routes_.isOwnAddress(record.localAddress) ||
        ((record.protocol != "PCP" || !options_.pcp) &&
         (record.protocol != "NAT-PMP" || !options_.natPmp))) {
        return nullptr;
    }
    auto mapping = std::make_unique<PortControlMapping>(
        network_, record.router, record.localAddress, wish,
        record.protocol == "PCP" ? makePcp(record.internalPort, record.nonces)
                                 : makeNatPmp(record.internalPort));
    mapping->recover();
    return mapping;
}

std::optional<RouterRoute> Conversations::readRoute() const {
    return options_.router ? routes_.to(options_.router->address) : routes_.defaultRoute();
}

std::optional<RouterRoute> Conversations::wayTo(const MappingRecord& record) const {
    const auto route = readRoute();
    if (route && record.router.address == route->router) {
        return route;
    }
    // Packets for a router's private address must not end up in the network behind another one, and
    // where one router is named nobody else is spoken to.
    return options_.router ? std::nullopt : routes_.toNeighbour(record.router.address);
}

/// A mapping that the router still holds obeys the nonces that made it, and stands in the way of
/// all others.
PcpNonces Conversations::pcpNonces(const RouterRoute& route, const PortWish& wish,
                                   const std::map<int, MappingRecord>& known) const {
    const auto record = std::find_if(known.rbegin(), known.rend(), [&](const auto& entry) {
        return entry.second.protocol == "PCP" && entry.second.router == server(route) &&
               entry.second.localAddress == route.localAddress &&
               entry.second.internalPort == wish.internalPort;
    });
    return record == known.rend() ? PcpWire::makeNonces() : record->second.nonces;
}

Ipv4Endpoint Conversations::server(const RouterRoute& route) const {
    return options_.router.value_or(Ipv4Endpoint{route.router, PortControlPort});
}

bool Conversations::speaksUpnp() const {
    // A port that somebody names is one of NAT-PMP, and there is nothing else to be found there.
    return options_.upnp && (!options_.router || options_.router->port == PortControlPort);
}

}  // namespace zelvo::platform
