#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zelvo::platform {

/// A configuration file of KDE: groups of entries, "[Group]" and "Key=value". Lines that are
/// neither are passed over. Value type.
class KdeConfig {
  public:
    explicit KdeConfig(std::string_view text);
    /// A missing file has no entries.
    static KdeConfig ofFile(const std::string& path);

    /// With its escapes resolved. The group as it stands in the file, without the outer brackets:
    /// "services][org.kde.krunner.desktop" for a group in a group.
    std::optional<std::string> entry(const std::string& group, const std::string& key) const;
    /// An entry that is a list, parted by commas; empty when it is missing.
    std::vector<std::string> list(const std::string& group, const std::string& key) const;

  private:
    std::map<std::string, std::map<std::string, std::string>> groups_;
};

}  // namespace zelvo::platform
