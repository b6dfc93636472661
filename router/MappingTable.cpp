#include "router/MappingTable.h"

#include <algorithm>

namespace zelvo::router {

namespace {

constexpr std::uint16_t FirstUnprivilegedPort = 1024;
/// For all hosts together. Each keeps up to two descriptors open.
constexpr std::size_t MappingLimit = 100;

}  // namespace

std::uint16_t MappingTable::map(Transport transport, const Endpoint& internal, std::uint16_t wish,
                                std::chrono::seconds lifetime, Clock::time_point now) {
    const Key key{transport, internal};
    auto found = mappings_.find(key);
    const bool renewed = found != mappings_.end();
    if (!renewed) {
        // A port that we forward ourselves would lead back here without end.
        Mapping mapping;
        if (mappings_.size() == MappingLimit || isExternal(internal) || !open(key, mapping, wish)) {
            return 0;
        }
        found = mappings_.emplace(key, std::move(mapping)).first;
    }
    found->second.expiresAt = now + lifetime;
    report_(std::string(renewed ? "Renewed " : "Mapped ") + line(key, found->second) + " for " +
            std::to_string(lifetime.count()) + " s");
    return found->second.externalPort;
}

void MappingTable::remove(Transport transport, const Endpoint& internal) {
    for (auto mapping = mappings_.begin(); mapping != mappings_.end();) {
        const auto& [mappedTransport, mapped] = mapping->first;
        if (mappedTransport == transport && mapped.address == internal.address &&
            (internal.port == 0 || mapped.port == internal.port)) {
            mapping = end(mapping, "Deleted ");
        } else {
            ++mapping;
        }
    }
}

void MappingTable::expire(Clock::time_point now) {
    for (auto mapping = mappings_.begin(); mapping != mappings_.end();) {
        mapping = mapping->second.expiresAt <= now ? end(mapping, "Expired ") : std::next(mapping);
    }
}

Clock::time_point MappingTable::nextExpiry() const {
    Clock::time_point next = Clock::time_point::max();
    for (const auto& [key, mapping] : mappings_) {
        next = std::min(next, mapping.expiresAt);
    }
    return next;
}

std::string MappingTable::text(Clock::time_point now) const {
    std::string text = "Mappings: " + std::to_string(mappings_.size());
    for (const auto& [key, mapping] : mappings_) {
        const auto left = std::chrono::ceil<std::chrono::seconds>(mapping.expiresAt - now);
        text += "\n" + line(key, mapping) + " for " + std::to_string(left.count()) + " s";
        if (mapping.forwarding) {
            text += ", connections: " + std::to_string(mapping.forwarding->connections());
        }
    }
    return text;
}

bool MappingTable::open(const Key& key, Mapping& mapping, std::uint16_t wish) {
    const auto& [transport, internal] = key;
    const auto openSocket = transport == Transport::Tcp ? openListener : openDatagramSocket;
    platform::FileDescriptor socket;
    if (wish >= FirstUnprivilegedPort) {
        socket = openSocket({externalAddress_, wish});
    }
    if (!socket) {
        socket = openSocket({externalAddress_, 0});
    }
    if (!socket) {
        return false;
    }
    mapping.externalPort = localEndpoint(socket).port;
    if (transport == Transport::Tcp) {
        mapping.forwarding = std::make_unique<Forwarding>(loop_, std::move(socket), internal);
    } else {
        mapping.reservation = std::move(socket);
    }
    return true;
}

bool MappingTable::isExternal(const Endpoint& internal) const {
    return internal.address == externalAddress_ &&
           std::any_of(mappings_.begin(), mappings_.end(), [&internal](const auto& mapping) {
               return mapping.second.externalPort == internal.port;
           });
}

MappingTable::Mappings::iterator MappingTable::end(Mappings::iterator mapping, const char* how) {
    report_(how + line(mapping->first, mapping->second));
    return mappings_.erase(mapping);
}

std::string MappingTable::line(const Key& key, const Mapping& mapping) const {
    const auto& [transport, internal] = key;
    return std::string(transport == Transport::Tcp ? "TCP " : "UDP ") +
           router::text(Endpoint{externalAddress_, mapping.externalPort}) + " -> " +
           router::text(internal);
}

}  // namespace zelvo::router
