#pragma once

#include <functional>
#include <map>
#include <string>

#include "platform/linux/desktop/DesktopReader.h"
#include "platform/linux/desktop/GLibPointers.h"

namespace zelvo::platform {

/// What GNOME keeps in GSettings. Where a schema is not installed its settings are missing.
class GnomeSettings : public DesktopReader {
  public:
    explicit GnomeSettings(std::function<void()> changed);

    /// The one used last, as far as it is still among the sources. An input method is no layout.
    std::optional<std::string> inputSource() const override;
    std::optional<DesktopSettings> settings(const KeyCombinations& combinations) const override;

  private:
    /// Null where the schema or its key is missing.
    GVariantPointer value(const std::string& schema, const char* key) const;

    const std::function<void()> changed_;
    std::map<std::string, GObjectPointer<GSettings>> schemas_;
};

}  // namespace zelvo::platform
