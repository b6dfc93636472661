#pragma once

#include <functional>
#include <map>
#include <memory>

#include "platform/linux/nat/base/NatNetwork.h"
#include "platform/linux/nat/upnp/SsdpMessage.h"

namespace zelvo::platform {

/// Tells from what one UPnP device announces whether it has been started anew.
class RestartDetector {
  public:
    bool isRestart(const SsdpMessage& message);

  private:
    bool left_ = false;
    /// The devices of one router, by their location, with their boot counts.
    std::map<std::string, std::string> known_;
};

/// Hears what the router tells all hosts of its network without being asked: NAT-PMP and PCP
/// announcements (RFC 6886 3.2.1, RFC 6887 14.1) and UPnP notices. Other senders are not heard.
class RouterAnnouncements {
  public:
    using PortControl = std::function<void(ByteView datagram)>;

    RouterAnnouncements(NatNetwork& network, std::uint32_t router, std::uint32_t localAddress,
                        PortControl portControl, std::function<void()> restarted);

  private:
    /// One group, of which only the router is heard.
    struct Group final : SearchReceiver {
        Group(NatNetwork& network, const Ipv4Endpoint& group, std::uint32_t router,
              std::uint32_t localAddress, std::function<void(ByteView)> take);
        void found(const Ipv4Endpoint& from, ByteView datagram) override;

        std::uint32_t router;
        std::function<void(ByteView)> take;
        std::unique_ptr<SearchPort> port;
    };

    RestartDetector detector_;
    Group portControl_;
    Group notices_;
};

}  // namespace zelvo::platform
