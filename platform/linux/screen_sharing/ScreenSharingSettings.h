#pragma once

#include <functional>

#include "platform/PropertyListReader.h"

namespace zelvo::platform {

/// Property lists as another reader has them, but for the setting of Screen Sharing, which counts
/// only while our own screen server listens. Any other program at its port may let in everybody
/// without asking.
class ScreenSharingSettings : public PropertyListReader {
  public:
    static constexpr const char* path = "/Library/Preferences/com.apple.RemoteManagement.plist";

    /// Called on the thread that asks.
    struct Options {
        std::function<bool()> serverListens;
        /// At each question about `path`.
        std::function<void()> asked = [] {};
        /// Before that, where the setting is on and our server listens.
        std::function<void()> believed = [] {};
    };

    ScreenSharingSettings(const PropertyListReader& files, Options options);

    PropertyListResult parse(std::span<const std::byte> bytes) const override;
    /// At `path`, "ScreenSharingReqPermEnabled" is left out where it is not to be believed.
    std::optional<PropertyList::Dictionary> dictionaryWithContentsOfFile(
        const std::string& path) const override;
    bool fileExists(const std::string& path) const override;

  private:
    const PropertyListReader& files_;
    const Options options_;
};

}  // namespace zelvo::platform
