#include "platform/linux/relay/RelaySettings.h"

#include <string_view>
#include <utility>

#include "platform/UserDefaults.h"

namespace zelvo::platform {

namespace {

/// Each is "YES" where the user wants it; the second one counts where both are.
constexpr std::string_view PreferKey = "preferARelay";
constexpr std::string_view NeverKey = "neverThroughARelay";
constexpr std::string_view Scheme = "zelvo://";

RelayUse kept(const UserDefaults& defaults) {
    if (defaults.boolForKey(NeverKey))
        return RelayUse::Never;
    return defaults.boolForKey(PreferKey) ? RelayUse::Preferred : RelayUse::WhereNeeded;
}

}  // namespace

RelaySettings::RelaySettings(UserDefaults& defaults, std::string serviceOrigin)
    : defaults_(defaults), serviceOrigin_(std::move(serviceOrigin)), use_(kept(defaults)) {}

void RelaySettings::wayIs(const RelayPortMapping::Way& way) {
    // A relay that is away for a moment comes back with the same number.
    isRelay_.set(!way.relay.empty() && !way.hasMoved);
}

void RelaySettings::setRelayUse(RelayUse use) {
    if (use == use_.value())
        return;
    for (const auto& [key, wanted] :
         {std::pair(PreferKey, RelayUse::Preferred), std::pair(NeverKey, RelayUse::Never)}) {
        if (use == wanted)
            defaults_.setString(key, "YES");
        else
            defaults_.removeObject(key);
    }
    use_.set(use);
}

std::string RelaySettings::webLink(const std::string& link) const {
    if (serviceOrigin_.empty() || !link.starts_with(Scheme) || link.size() == Scheme.size())
        return {};
    return serviceOrigin_ + '/' + link.substr(Scheme.size());
}

}  // namespace zelvo::platform
