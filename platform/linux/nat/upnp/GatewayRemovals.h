#pragma once

#include <memory>
#include <vector>

#include "platform/linux/nat/base/NatNetwork.h"
#include "platform/linux/nat/base/RetrySchedule.h"
#include "platform/linux/nat/upnp/UpnpDescription.h"

namespace zelvo::platform {

/// The entries of a gateway's table that are to go, all at once and with a second attempt; over
/// after a second, confirmed or not.
class GatewayRemovals {
  public:
    GatewayRemovals(NatNetwork& network, std::uint32_t localAddress)
        : network_(network), localAddress_(localAddress) {}

    void add(bool tcp, std::uint16_t externalPort) { removals_.push_back({tcp, externalPort}); }
    /// `service` may be missing where nothing was added. `cutOff`: an order to add may take effect
    /// only now.
    void begin(const std::optional<UpnpService>& service, bool cutOff);
    void wake();

    NatTime nextWake() const { return schedule_.next(); }
    bool isOver() const { return begun_ && !schedule_.isOpen(); }
    /// Everything is known to be gone.
    bool isConfirmed() const;

  private:
    struct Removal {
        bool tcp;
        std::uint16_t externalPort;
        bool open = true;
        std::unique_ptr<HttpExchange> exchange{};
    };

    void send();
    void answered(std::size_t index, const std::optional<HttpResponse>& response);

    NatNetwork& network_;
    std::uint32_t localAddress_;
    std::optional<UpnpService> service_;
    bool cutOff_ = false;
    bool begun_ = false;
    // The exchanges go with this object: one of them may be what calls.
    std::vector<Removal> removals_;
    Retry schedule_;
};

}  // namespace zelvo::platform
