#pragma once

#include <memory>
#include <string>

#include "platform/Log.h"
#include "platform/MainQueue.h"
#include "platform/NatPortMapping.h"

namespace zelvo::platform {

class NatWorker;

/// Asks the home router by NAT-PMP (RFC 6886) and PCP (RFC 6887), on a worker of its own.
///
/// The first outcome comes after ten seconds at the latest. A lease is one hour and renewed for as
/// long as the reference lives; after a failure the router is asked again from time to time, and
/// whenever the network has changed.
class RouterPortMapping final : public NatPortMapping {
  public:
    struct Options {
        /// "address" or "address:port"; empty for the gateway of the default route. With anything
        /// else every request fails with NatErrorNoRouter.
        std::string router;
        /// The protocols to try.
        bool pcp = true;
        bool natPmp = true;
    };

    /// Both outlive this object.
    RouterPortMapping(MainQueue& mainQueue, Log& log, Options options);
    /// Waits until the router has confirmed the withdrawal of what is mapped, one second at most.
    ~RouterPortMapping() override;

    /// NatErrorBadParam for a request without protocol, port or callback, with flags, or for one
    /// interface. A request for external port 0 is made for a random one.
    std::int32_t create(std::unique_ptr<NatPortMappingReference>& reference,
                        const NatPortMappingRequest& request, Callback callback) override;

  private:
    MainQueue& mainQueue_;
    bool routerIsValid_;
    int nextId_ = 0;
    std::shared_ptr<NatWorker> worker_;
};

}  // namespace zelvo::platform
