#include "platform/linux/screen_sharing/ScreenSharingSettings.h"

#include <sys/types.h>

#include <cstdint>
#include <limits>
#include <utility>

#include "platform/linux/screen_sharing/ServerProcess.h"
#include "platform/linux/screen_sharing/VncPort.h"

namespace zelvo::platform {

namespace {

constexpr const char* requestSettingKey = "ScreenSharingReqPermEnabled";

std::optional<std::int64_t> integerAt(const PropertyList::Dictionary& settings, const char* key) {
    auto found = settings.find(key);
    if (found == settings.end() || !found->second.integer())
        return std::nullopt;
    return *found->second.integer();
}

}  // namespace

ScreenSharingSettings::ScreenSharingSettings(const PropertyListReader& files,
                                             const ServicesDatabase& services, Options options)
    : files_(files), services_(services), options_(std::move(options)) {}

PropertyListResult ScreenSharingSettings::parse(std::span<const std::byte> bytes) const {
    return files_.parse(bytes);
}

bool ScreenSharingSettings::fileExists(const std::string& path) const {
    return files_.fileExists(path);
}

std::optional<PropertyList::Dictionary> ScreenSharingSettings::dictionaryWithContentsOfFile(
    const std::string& path) const {
    auto dictionary = files_.dictionaryWithContentsOfFile(path);
    if (path != ScreenSharingSettings::path)
        return dictionary;
    if (dictionary) {
        auto setting = dictionary->find(requestSettingKey);
        // The processes are looked at only where it matters: this is asked many times a second.
        if (setting != dictionary->end() && setting->second.booleanReading() &&
            !serverListens(*dictionary))
            dictionary->erase(setting);
    }
    options_.asked();
    return dictionary;
}

bool ScreenSharingSettings::serverListens(const PropertyList::Dictionary& settings) const {
    auto pid = integerAt(settings, "ScreenSharingServerPid");
    if (!pid || *pid <= 0 || *pid > std::numeric_limits<pid_t>::max())
        return false;
    ServerProcess server(static_cast<pid_t>(*pid), integerAt(settings, "ScreenSharingServerStart"));
    if (!server.listensOn(vncPort(services_)))
        return false;
    options_.listens(static_cast<pid_t>(*pid));
    return true;
}

}  // namespace zelvo::platform
