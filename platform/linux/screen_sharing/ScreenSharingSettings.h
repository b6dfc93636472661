#pragma once

#include <sys/types.h>

#include <functional>

#include "platform/PropertyListReader.h"

namespace zelvo::platform {

class ServicesDatabase;

/// Property lists as another reader has them, but for the setting of Screen Sharing, which counts
/// only while the very server that it was written for listens. A server that somebody started by
/// hand, or that took the place of ours after a restart, may let in everybody without asking.
class ScreenSharingSettings : public PropertyListReader {
  public:
    static constexpr const char* path = "/Library/Preferences/com.apple.RemoteManagement.plist";

    struct Options {
        /// Called at each question about `path`, on the thread that asks.
        std::function<void()> asked = [] {};
        /// Called before that with the server's process, where it was found to listen.
        std::function<void(pid_t server)> listens = [](pid_t) {};
    };

    ScreenSharingSettings(const PropertyListReader& files, const ServicesDatabase& services,
                          Options options);

    PropertyListResult parse(std::span<const std::byte> bytes) const override;
    /// At `path`, "ScreenSharingReqPermEnabled" is left out where it is not to be believed.
    std::optional<PropertyList::Dictionary> dictionaryWithContentsOfFile(
        const std::string& path) const override;
    bool fileExists(const std::string& path) const override;

  private:
    bool serverListens(const PropertyList::Dictionary& settings) const;

    const PropertyListReader& files_;
    const ServicesDatabase& services_;
    const Options options_;
};

}  // namespace zelvo::platform
