#pragma once

#include <string>

#include "platform/Explanations.h"

namespace zelvo::platform {

/// What Linux can say about the stages. Main thread only.
class LinuxExplanations : public Explanations {
  public:
    /// All outlive this object.
    struct Sources {
        Observable<std::string>& screenSharing;
        Observable<std::string>& router;
        /// Why the sharing service gave no link. It is asked last, so what it says comes first.
        Observable<std::string>& service;
        Observable<std::string>& withdrawal;
    };

    explicit LinuxExplanations(const Sources& sources)
        : sources_(sources),
          routerChange_(sources.router.bind([this](const auto&) { update(); })),
          serviceChange_(sources.service.subscribe([this](const auto&) { update(); })) {}

    Observable<std::string>& screenSharing() override { return sources_.screenSharing; }
    Observable<std::string>& router() override { return link_; }
    Observable<std::string>& withdrawal() override { return sources_.withdrawal; }

  private:
    void update() {
        const auto& service = sources_.service.value();
        const auto& text = service.empty() ? sources_.router.value() : service;
        if (text != link_.value())
            link_.set(text);
    }

    const Sources sources_;
    Observable<std::string> link_;
    Subscription routerChange_;
    Subscription serviceChange_;
};

}  // namespace zelvo::platform
