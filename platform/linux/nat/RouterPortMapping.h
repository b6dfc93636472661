#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/Log.h"
#include "platform/MainQueue.h"
#include "platform/NatPortMapping.h"

namespace zelvo::platform {

class NatWorker;

/// Asks the home router by PCP (RFC 6887), NAT-PMP (RFC 6886) and UPnP IGD side by side, on a
/// worker of its own.
///
/// The first outcome comes after ten seconds at the latest. A lease is one hour and renewed for as
/// long as the reference lives; after a failure the router is asked again from time to time, and
/// whenever the network has changed.
class RouterPortMapping final : public NatPortMapping {
  public:
    using Heard = std::function<void(const std::optional<NatPortMappingReply>&)>;

    struct Options {
        /// "address" or "address:port"; empty for the gateway of the default route. With anything
        /// else every request fails with NatErrorNoRouter.
        std::string router;
        /// Folder of the journal, by which the next start withdraws what a crash has left on the
        /// router; empty for none.
        std::string stateFolder;
        /// The protocols to try. UPnP is left out where `router` names a port.
        bool pcp = true;
        bool natPmp = true;
        bool upnp = true;
        /// Hears each reply on the main thread before the request's own callback does, and none
        /// when a new request begins.
        Heard heard;
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
    const Heard heard_;
    std::shared_ptr<NatWorker> worker_;
};

}  // namespace zelvo::platform
