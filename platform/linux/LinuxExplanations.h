#pragma once

#include <string>

#include "platform/Explanations.h"
#include "platform/linux/nat/RouterExplanation.h"
#include "platform/linux/relay/RelayExplanation.h"

namespace zelvo::platform {

/// What Linux can say about the stages. Main thread only.
class LinuxExplanations : public Explanations {
  public:
    /// All outlive this object.
    struct Sources {
        const Observable<std::string>& screenSharing;
        const Observable<std::string>& screenLimits;
        const RouterExplanation& router;
        const RelayExplanation& relay;
        /// Why nobody gets through what the router has opened.
        const Observable<std::string>& reach;
        /// Why the sharing service gave no link. It is asked last, so what it says comes first.
        const Observable<std::string>& service;
        const Observable<std::string>& keptLink;
        const Observable<std::string>& withdrawal;
    };

    explicit LinuxExplanations(const Sources& sources)
        : sources_(sources),
          routerChange_(sources.router.text().bind([this](const auto&) { update(); })),
          relayChange_(sources_.relay.trouble().subscribe([this](const auto&) { update(); })),
          reachChange_(sources_.reach.subscribe([this](const auto&) { update(); })),
          serviceChange_(sources.service.subscribe([this](const auto&) { update(); })) {}

    const Observable<std::string>& screenSharing() const override { return sources_.screenSharing; }
    const Observable<std::string>& screenLimits() const override { return sources_.screenLimits; }
    const Observable<std::string>& router() const override { return link_; }
    std::string routerNews() const override {
        const auto& trouble = sources_.relay.trouble().value();
        return trouble.empty() ? sources_.router.news() : trouble;
    }
    const Observable<std::string>& way() const override { return sources_.relay.way(); }
    const Observable<std::string>& keptLink() const override { return sources_.keptLink; }
    const Observable<std::string>& withdrawal() const override { return sources_.withdrawal; }

  private:
    void update() {
        const auto& service = sources_.service.value();
        const auto& relay = sources_.relay.trouble().value();
        const auto& router = sources_.router.text().value();
        const auto& reach = sources_.reach.value();
        for (const auto* text : {&service, &relay, &router, &reach})
            if (!text->empty() || text == &reach) {
                if (*text != link_.value())
                    link_.set(*text);
                return;
            }
    }

    const Sources sources_;
    Observable<std::string> link_;
    Subscription routerChange_;
    Subscription relayChange_;
    Subscription reachChange_;
    Subscription serviceChange_;
};

}  // namespace zelvo::platform
