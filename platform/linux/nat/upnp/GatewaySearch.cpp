#include "platform/linux/nat/upnp/GatewaySearch.h"

#include <algorithm>

#include "platform/linux/nat/upnp/SsdpMessage.h"

namespace zelvo::platform {

namespace {

using namespace std::chrono_literals;

/// Three searches, and time for the answers to the last.
constexpr RetrySchedule SearchSchedule{1s, 3};
constexpr std::size_t LocationLimit = 10;

/// Gateways of version 2 answer for version 1 as well, those that are wrong about it excepted.
constexpr std::string_view SearchTypes[] = {
    "urn:schemas-upnp-org:device:InternetGatewayDevice:1",
    "urn:schemas-upnp-org:device:InternetGatewayDevice:2",
    "urn:schemas-upnp-org:service:WANIPConnection:1",
};

}  // namespace

GatewaySearch::GatewaySearch(NatNetwork& network, const GatewayPlace& place,
                             std::function<void()> found)
    : network_(network), place_(place), found_(std::move(found)) {}

void GatewaySearch::begin() {
    locations_.clear();
    seen_.clear();
    port_ = network_.search(place_.localAddress, *this);
    schedule_.begin(network_.now());
}

void GatewaySearch::end() {
    schedule_.end();
    locations_.clear();
    port_.reset();
}

void GatewaySearch::wake() {
    if (!port_) {
        end();
    } else if (schedule_.step(network_.now(), SearchSchedule)) {
        send();
    }
}

std::optional<UpnpUrl> GatewaySearch::takeLocation() {
    if (locations_.empty()) {
        return std::nullopt;
    }
    const UpnpUrl location = locations_.front();
    locations_.pop_front();
    return location;
}

void GatewaySearch::found(const Ipv4Endpoint& from, ByteView datagram) {
    const auto message = SsdpMessage::parse(datagram);
    const auto url = message && message->kind == SsdpMessage::Kind::Answer
                         ? UpnpUrl::parse(message->location)
                         : std::nullopt;
    if (!url || from.address != place_.router || url->server.address != place_.router ||
        std::find(seen_.begin(), seen_.end(), *url) != seen_.end() ||
        seen_.size() == LocationLimit) {
        return;
    }
    seen_.push_back(*url);
    locations_.push_back(*url);
    found_();
}

void GatewaySearch::send() {
    std::vector<Ipv4Endpoint> hosts{{place_.router, SsdpGroup.port}};
    if (place_.multicast) {
        hosts.push_back(SsdpGroup);
    }
    for (const Ipv4Endpoint& host : hosts) {
        for (const std::string_view type : SearchTypes) {
            port_->send(host, SsdpMessage::search(type, host));
        }
    }
}

}  // namespace zelvo::platform
