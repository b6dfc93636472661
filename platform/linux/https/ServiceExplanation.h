#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "platform/Observable.h"
#include "platform/linux/https/ExchangeReport.h"

namespace zelvo::platform {

class Bundle;

/// What there is to tell people about the sharing service: why it gave no link, or that it does not
/// know that the link is over. Main thread only.
class ServiceExplanation {
  public:
    /// What this computer knows of its own clock; seconds since 1970.
    struct Clock {
        std::int64_t now = 0;
        /// A moment that has passed for certain.
        std::int64_t past = 0;
        /// A time server holds it.
        bool isKept = false;

        /// What it says, in local time.
        [[nodiscard]] std::string text() const;
    };

    explicit ServiceExplanation(const Bundle& bundle,
                                std::function<Clock()> readClock = &readSystemClock);
    ServiceExplanation(const ServiceExplanation&) = delete;
    ServiceExplanation& operator=(const ServiceExplanation&) = delete;

    void creationBegan();
    /// Without a link and without trouble the service answered and refused.
    void creationEnded(bool givesLink, ExchangeTrouble trouble);
    void withdrawalEnded(bool isConfirmed);

    /// Sentences in the user's language, written when they change; empty where all is well.
    Observable<std::string>& creation() { return creation_; }
    Observable<std::string>& withdrawal() { return withdrawal_; }

    static Clock readSystemClock();

  private:
    std::string sentence(ExchangeTrouble trouble) const;

    const Bundle& bundle_;
    const std::function<Clock()> readClock_;
    Observable<std::string> creation_;
    Observable<std::string> withdrawal_;
};

}  // namespace zelvo::platform
