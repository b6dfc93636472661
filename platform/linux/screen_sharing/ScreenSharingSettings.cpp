#include "platform/linux/screen_sharing/ScreenSharingSettings.h"

#include <utility>

namespace zelvo::platform {

ScreenSharingSettings::ScreenSharingSettings(const PropertyListReader& files, Options options)
    : files_(files), options_(std::move(options)) {}

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
        auto setting = dictionary->find("ScreenSharingReqPermEnabled");
        if (setting != dictionary->end() && setting->second.booleanReading()) {
            if (options_.serverListens())
                options_.believed();
            else
                dictionary->erase(setting);
        }
    }
    options_.asked();
    return dictionary;
}

}  // namespace zelvo::platform
