#pragma once

#include <string>

#include "platform/Explanations.h"

namespace zelvo::platform {

/// What Linux can say about the stages. Main thread only.
class LinuxExplanations : public Explanations {
  public:
    LinuxExplanations(Observable<std::string>& screenSharing, Observable<std::string>& router)
        : screenSharing_(screenSharing), router_(router) {}

    Observable<std::string>& screenSharing() override { return screenSharing_; }
    Observable<std::string>& router() override { return router_; }

  private:
    Observable<std::string>& screenSharing_;
    Observable<std::string>& router_;
};

}  // namespace zelvo::platform
