#pragma once

#include "platform/Preferences.h"

namespace zelvo::platform {

class UserDefaults;

/// Preferences in the user's defaults, which are read once. Main thread only.
class UserPreferences final : public Preferences {
  public:
    /// The defaults outlive this object.
    explicit UserPreferences(UserDefaults& defaults);

    const Observable<bool>& makesNewLinks() const override { return makesNewLinks_; }
    void setMakesNewLinks(bool makes) override;
    const Observable<bool>& showsTrayIcon() const override { return showsTrayIcon_; }
    void setShowsTrayIcon(bool shows) override;

  private:
    void keep(const char* key, bool value);

    UserDefaults& defaults_;
    Observable<bool> makesNewLinks_;
    Observable<bool> showsTrayIcon_;
};

}  // namespace zelvo::platform
