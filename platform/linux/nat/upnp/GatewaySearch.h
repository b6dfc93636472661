#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "platform/linux/nat/base/NatNetwork.h"
#include "platform/linux/nat/base/RetrySchedule.h"
#include "platform/linux/nat/upnp/UpnpUrl.h"

namespace zelvo::platform {

/// Where a UPnP gateway is looked for.
struct GatewayPlace {
    std::uint32_t router = 0;
    std::uint32_t localAddress = 0;
    /// False where the router is asked alone, and not the network.
    bool multicast = true;
};

/// Looks for descriptions on the router's web server. Answers that come from elsewhere, or lead
/// elsewhere, are not followed, and no more than ten are.
class GatewaySearch final : private SearchReceiver {
  public:
    /// `found` is called for each new location.
    GatewaySearch(NatNetwork& network, const GatewayPlace& place, std::function<void()> found);

    void begin();
    void end();
    void wake();

    NatTime nextWake() const { return schedule_.next(); }
    /// Answers may still come.
    bool isOpen() const { return schedule_.isOpen(); }
    bool hasLocation() const { return !locations_.empty(); }
    std::optional<UpnpUrl> takeLocation();

  private:
    void found(const Ipv4Endpoint& from, ByteView datagram) override;
    void send();

    NatNetwork& network_;
    GatewayPlace place_;
    std::function<void()> found_;
    std::unique_ptr<SearchPort> port_;
    Retry schedule_;
    std::deque<UpnpUrl> locations_;
    std::vector<UpnpUrl> seen_;
};

}  // namespace zelvo::platform
