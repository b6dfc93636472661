#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/Bundle.h"

namespace zelvo::platform {

class PropertyListReader;

/// The application's resources: the folder "resources" beside the executable, else
/// "../share/zelvo/resources" from there.
class InstalledBundle : public Bundle {
  public:
    struct Options {
        /// The folder of the executable; empty for that of the running one.
        std::string executableFolder;
        /// Locale names, the best first.
        std::vector<std::string> languages;
        /// The user's data folder; empty where there is none.
        std::string dataHome;
    };

    InstalledBundle(Options options, const PropertyListReader& propertyLists);

    std::string bundleIdentifier() const override;
    std::string shortVersionString() const override;
    std::string resourcePath() const override;
    std::optional<std::string> resourcePath(const std::string& identifier) const override;
    /// From "<language>.lproj/Localizable.strings", where that has no such key the English one.
    std::string localizedString(const std::string& key) const override;
    /// The folder "zelvo/Library" in the user's data folder.
    std::optional<std::string> userLibraryDirectory() const override;

  private:
    const std::string dataHome_;
    std::string resources_;
    std::map<std::string, std::string> strings_;
};

}  // namespace zelvo::platform
