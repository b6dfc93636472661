#pragma once

#include <string>

#include "platform/Explanations.h"

namespace zelvo::platform {

/// What Linux can say about the stages. Main thread only.
class LinuxExplanations : public Explanations {
  public:
    LinuxExplanations(Observable<std::string>& screenSharing, Observable<std::string>& router,
                      Observable<std::string>& keptLink)
        : screenSharing_(screenSharing), router_(router), keptLink_(keptLink) {}

    Observable<std::string>& screenSharing() override { return screenSharing_; }
    Observable<std::string>& router() override { return router_; }
    Observable<std::string>& keptLink() override { return keptLink_; }

  private:
    Observable<std::string>& screenSharing_;
    Observable<std::string>& router_;
    Observable<std::string>& keptLink_;
};

}  // namespace zelvo::platform
