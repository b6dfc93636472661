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
    virtual Observable<std::string>& screenSharing() = 0;
    /// Why there is no link, or why it may lead nowhere: what is known of the router, or of the
    /// sharing service once the router has let us through.
    virtual Observable<std::string>& router() = 0;
    /// What a quit could not take back.
    virtual Observable<std::string>& withdrawal() = 0;
};

}  // namespace zelvo::platform
