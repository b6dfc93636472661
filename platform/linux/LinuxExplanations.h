#pragma once

#include <string>

#include "platform/Explanations.h"
#include "platform/linux/nat/RouterExplanation.h"

namespace zelvo::platform {

/// What Linux can say about the stages. Main thread only.
class LinuxExplanations : public Explanations {
  public:
    LinuxExplanations(const Observable<std::string>& screenSharing,
                      const RouterExplanation& router, const Observable<std::string>& keptLink)
        : screenSharing_(screenSharing), router_(router), keptLink_(keptLink) {}

    const Observable<std::string>& screenSharing() const override { return screenSharing_; }
    const Observable<std::string>& router() const override { return router_.text(); }
    std::string routerNews() const override { return router_.news(); }
    const Observable<std::string>& keptLink() const override { return keptLink_; }

  private:
    const Observable<std::string>& screenSharing_;
    const RouterExplanation& router_;
    const Observable<std::string>& keptLink_;
};

}  // namespace zelvo::platform
