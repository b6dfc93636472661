#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>

#include "platform/PropertyList.h"
#include "platform/UserDefaults.h"

namespace zelvo::platform {

class Log;
class PlistDocument;

/// The property list "defaults.plist" in a folder of the user's, readable by the user alone. It is
/// read at every call and replaced as a whole, so that a reader sees the old or the new state and
/// other keys keep their values. A file that is no property list is renamed to
/// "defaults.plist.damaged-1" (or the next number that is free) and logged.
class FileUserDefaults : public UserDefaults {
  public:
    /// The folder is made when something is stored first; empty where the user has none. The log
    /// outlives this object.
    FileUserDefaults(std::string folder, Log& log);

    bool boolForKey(std::string_view key) const override;
    std::optional<std::string> stringForKey(std::string_view key) const override;
    void setString(std::string_view key, std::string_view value) override;
    void removeObject(std::string_view key) override;

  private:
    /// None when there is a file that cannot be read and has to stay.
    std::optional<PlistDocument> read() const;
    std::optional<PropertyList> value(std::string_view key) const;
    bool setAside(const std::string& why) const;
    void write(const PlistDocument& document);
    /// An errno value.
    int replaceFile(std::span<const char> content) const;
    void complain(const std::string& text) const;

    const std::string folder_;
    const std::string file_;
    Log& log_;
    mutable std::string lastComplaint_;
};

}  // namespace zelvo::platform
