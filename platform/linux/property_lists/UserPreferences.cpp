#include "platform/linux/property_lists/UserPreferences.h"

#include "platform/UserDefaults.h"

namespace zelvo::platform {

namespace {

constexpr const char* NewLinkKey = "useNewLinkAtEveryLaunch";
/// Of what is on where nothing is said, the contrary is kept.
constexpr const char* NoTrayIconKey = "hideTrayIcon";

}  // namespace

UserPreferences::UserPreferences(UserDefaults& defaults)
    : defaults_(defaults),
      makesNewLinks_(defaults.boolForKey(NewLinkKey)),
      showsTrayIcon_(!defaults.boolForKey(NoTrayIconKey)) {}

void UserPreferences::setMakesNewLinks(bool makes) {
    keep(NewLinkKey, makes);
    // What could not be kept is as it was.
    makesNewLinks_.set(defaults_.boolForKey(NewLinkKey));
}

void UserPreferences::setShowsTrayIcon(bool shows) {
    keep(NoTrayIconKey, !shows);
    showsTrayIcon_.set(!defaults_.boolForKey(NoTrayIconKey));
}

void UserPreferences::keep(const char* key, bool value) {
    if (value)
        defaults_.setString(key, "YES");
    else
        defaults_.removeObject(key);
}

}  // namespace zelvo::platform
