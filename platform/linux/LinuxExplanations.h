#pragma once

#include <string>

#include "platform/Explanations.h"

namespace zelvo::platform {

/// What Linux can say about the stages. Main thread only.
class LinuxExplanations : public Explanations {
  public:
    explicit LinuxExplanations(Observable<std::string>& screenSharing)
        : screenSharing_(screenSharing) {}

    Observable<std::string>& screenSharing() override { return screenSharing_; }
    /// Empty until the port mapping has something to say.
    Observable<std::string>& router() override { return router_; }

  private:
    Observable<std::string>& screenSharing_;
    Observable<std::string> router_;
};

}  // namespace zelvo::platform
