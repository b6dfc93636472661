#pragma once

#include <string>

#include "platform/Explanations.h"
#include "platform/linux/nat/RouterExplanation.h"

namespace zelvo::platform {

/// What Linux can say about the stages. Main thread only.
class LinuxExplanations : public Explanations {
  public:
    LinuxExplanations(Observable<std::string>& screenSharing, RouterExplanation& router)
        : screenSharing_(screenSharing), router_(router) {}

    Observable<std::string>& screenSharing() override { return screenSharing_; }
    Observable<std::string>& router() override { return router_.text(); }
    std::string routerNews() const override { return router_.news(); }

  private:
    Observable<std::string>& screenSharing_;
    RouterExplanation& router_;
};

}  // namespace zelvo::platform
