#include "platform/linux/nat/RouterAnnouncements.h"

#include "platform/linux/nat/codec/PortControl.h"

namespace zelvo::platform {

namespace {

constexpr std::uint32_t AllHosts = 0xe0000001;
/// More than a router has.
constexpr std::size_t DeviceLimit = 16;

}  // namespace

bool RestartDetector::isRestart(const SsdpMessage& message) {
    if (message.kind == SsdpMessage::Kind::Farewell) {
        left_ = true;
        return false;
    }
    if (message.kind != SsdpMessage::Kind::Alive) {
        return false;
    }
    // Of the first notice nobody knows whether it is that of a start; asking costs little.
    const auto known = known_.find(message.location);
    const bool restarted = left_ || known == known_.end() || known->second != message.bootId;
    left_ = false;
    if (known != known_.end() || known_.size() < DeviceLimit) {
        known_[message.location] = message.bootId;
        return restarted;
    }
    return false;
}

RouterAnnouncements::Group::Group(NatNetwork& network, const Ipv4Endpoint& group,
                                  std::uint32_t router, std::uint32_t localAddress,
                                  std::function<void(ByteView)> take)
    : router(router), take(std::move(take)), port(network.join(group, localAddress, *this)) {}

void RouterAnnouncements::Group::found(const Ipv4Endpoint& from, ByteView datagram) {
    if (from.address == router) {
        take(datagram);
    }
}

RouterAnnouncements::RouterAnnouncements(NatNetwork& network, std::uint32_t router,
                                         std::uint32_t localAddress, PortControl portControl,
                                         std::function<void()> restarted)
    : portControl_(network, {AllHosts, PortControlClientPort}, router, localAddress,
                   std::move(portControl)),
      notices_(network, SsdpGroup, router, localAddress,
               [this, restarted = std::move(restarted)](ByteView datagram) {
                   const auto message = SsdpMessage::parse(datagram);
                   if (message && detector_.isRestart(*message)) {
                       restarted();
                   }
               }) {}

}  // namespace zelvo::platform
