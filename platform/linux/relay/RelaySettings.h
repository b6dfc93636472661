#pragma once

#include <string>

#include "platform/WayIn.h"
#include "platform/linux/relay/RelayPortMapping.h"

namespace zelvo::platform {

class UserDefaults;

/// What the user wants of relays, kept in their defaults. Main thread only.
class RelaySettings final : public WayIn {
  public:
    /// The defaults outlive this object. The origin is the sharing service's, or empty.
    RelaySettings(UserDefaults& defaults, std::string serviceOrigin);

    void wayIs(const RelayPortMapping::Way& way);
    void setIsBarred(bool isBarred) { isBarred_.set(isBarred); }

    const Observable<RelayUse>& relayUse() const override { return use_; }
    void setRelayUse(RelayUse use) override;
    const Observable<bool>& isRelay() const override { return isRelay_; }
    const Observable<bool>& isBarred() const override { return isBarred_; }
    std::string webLink(const std::string& link) const override;

  private:
    UserDefaults& defaults_;
    const std::string serviceOrigin_;
    Observable<RelayUse> use_;
    Observable<bool> isRelay_;
    Observable<bool> isBarred_;
};

}  // namespace zelvo::platform
