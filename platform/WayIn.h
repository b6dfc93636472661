#pragma once

#include <cstdint>
#include <string>

#include "platform/Observable.h"

namespace zelvo::platform {

/// Whether people may come in through a relay of the sharing service.
enum class RelayUse : std::uint8_t {
    /// Where the router gives no way that leads here.
    WhereNeeded,
    /// Wherever there is one: browsers can come in by a relay alone.
    Preferred,
    Never,
};

/// By which way people come in, and what the user wants of it. Main thread only.
class WayIn {
  public:
    virtual ~WayIn() = default;

    virtual const Observable<RelayUse>& relayUse() const = 0;
    /// Kept for later launches, too. A way that stands stays until a link is registered again
    /// (MainWindowModel::changeWay).
    virtual void setRelayUse(RelayUse use) = 0;

    /// Whether the link leads through a relay, so that a browser is enough to open it.
    virtual const Observable<bool>& isRelay() const = 0;
    /// Nobody gets through the port that the router has opened; a relay would be a way.
    virtual const Observable<bool>& isBarred() const = 0;
    /// The page of a link ("zelvo://...") at the sharing service, with the link's key; empty where
    /// the link is none or there is no service.
    virtual std::string webLink(const std::string& link) const = 0;
};

}  // namespace zelvo::platform
