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
    /// What is known of the router: a second one above it, no answer, a protocol switched off.
    virtual const Observable<std::string>& router() const = 0;
};

}  // namespace zelvo::platform
