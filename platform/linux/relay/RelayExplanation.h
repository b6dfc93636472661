#pragma once

#include <string>

#include "platform/Observable.h"
#include "platform/linux/relay/RelayPortMapping.h"

namespace zelvo::platform {

class Bundle;

/// What there is to tell people about the relay that is their way in. Main thread only.
class RelayExplanation {
  public:
    explicit RelayExplanation(const Bundle& bundle) : bundle_(bundle) {}
    RelayExplanation(const RelayExplanation&) = delete;
    RelayExplanation& operator=(const RelayExplanation&) = delete;

    void wayIs(const RelayPortMapping::Way& way);

    /// Sentences in the user's language, written when they change: which way is used, and why
    /// nobody new can come in by it. Empty where no relay is used nor missed, and where all is
    /// well.
    const Observable<std::string>& way() const { return way_; }
    const Observable<std::string>& trouble() const { return trouble_; }

  private:
    const Bundle& bundle_;
    Observable<std::string> way_;
    Observable<std::string> trouble_;
};

}  // namespace zelvo::platform
