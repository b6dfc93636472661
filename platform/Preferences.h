#pragma once

#include "platform/Observable.h"

namespace zelvo::platform {

/// Habits that the user chooses, kept for later launches, too. What is chosen of viewers and of
/// relays is theirs (Viewers, WayIn). Main thread only.
class Preferences {
  public:
    virtual ~Preferences() = default;

    /// Whether each launch makes a link of its own, which the quit deletes. Counts from the next
    /// registration or quit on.
    virtual const Observable<bool>& makesNewLinks() const = 0;
    virtual void setMakesNewLinks(bool makes) = 0;

    /// Whether an icon in the desktop's panel tells of the link.
    virtual const Observable<bool>& showsTrayIcon() const = 0;
    virtual void setShowsTrayIcon(bool shows) = 0;
};

}  // namespace zelvo::platform
