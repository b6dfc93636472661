#pragma once

#include <string>

#include "platform/Explanations.h"

namespace zelvo::platform {

/// What Linux can say about the stages. Main thread only.
class LinuxExplanations : public Explanations {
  public:
    LinuxExplanations(const Observable<std::string>& screenSharing,
                      const Observable<std::string>& router)
        : screenSharing_(screenSharing), router_(router) {}

    const Observable<std::string>& screenSharing() const override { return screenSharing_; }
    const Observable<std::string>& router() const override { return router_; }

  private:
    const Observable<std::string>& screenSharing_;
    const Observable<std::string>& router_;
};

}  // namespace zelvo::platform
