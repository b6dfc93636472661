#pragma once

#include <string>

#include "platform/Observable.h"

namespace zelvo::platform {

/// What the system side can say in words about a stage that does not come on, for the front ends to
/// show beside the controller's own rows: localised sentences, empty where there is nothing to say.
/// Main thread only.
class Explanations {
  public:
    virtual ~Explanations() = default;

    /// Why Screen Sharing is not on, such as a session in which no server can ask.
    virtual const Observable<std::string>& screenSharing() const = 0;
    /// What viewers cannot do although Screen Sharing is on, and what to do about it.
    virtual const Observable<std::string>& screenLimits() const = 0;
    /// Why there is no link, or why it may lead nowhere: what is known of the router, or of the
    /// sharing service once the router has let us through.
    virtual const Observable<std::string>& router() const = 0;
    /// The same where it has come about since the link was made, which is worth saying while a
    /// viewer is connected, too. Changes with `router`.
    virtual std::string routerNews() const = 0;
    /// By which way people come in, where that is not straight through the router.
    virtual const Observable<std::string>& way() const = 0;
    /// What is not as it should be with a link that works: why the next start will have another,
    /// such as a full disk, or who cannot come by it.
    virtual const Observable<std::string>& keptLink() const = 0;
    /// What a quit could not take back.
    virtual const Observable<std::string>& withdrawal() const = 0;
};

}  // namespace zelvo::platform
