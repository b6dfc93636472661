#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/linux/desktop/DesktopReader.h"
#include "platform/linux/desktop/SettingsStore.h"

namespace zelvo::platform {

class Log;

/// What GNOME keeps in GSettings. Where a schema is not installed its settings are missing.
class GnomeSettings : public DesktopReader {
  public:
    /// Loads the module that reads GSettings, which has its place by the program's folder. Null,
    /// after a line in the log, where it cannot be used.
    static std::unique_ptr<GnomeSettings> open(const std::string& programFolder, Log& log,
                                               std::function<void()> changed);

    /// The one used last, as far as it is still among the sources. An input method is no layout.
    std::optional<std::string> inputSource() const override;
    std::optional<DesktopSettings> settings(const KeyCombinations& combinations) const override;

  private:
    explicit GnomeSettings(std::unique_ptr<SettingsStore> store);

    const std::unique_ptr<SettingsStore> store_;
};

}  // namespace zelvo::platform
