#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "platform/PropertyList.h"
#include "platform/UserDefaults.h"

namespace zelvo::platform {

class Log;

/// The property list "defaults.plist" in a folder of the user's, readable by the user alone. It is
/// read at every call and replaced as a whole, so that a reader sees the old or the new state and
/// other keys keep their values (a date its whole seconds, an integer beyond 64 signed bits the
/// nearest real). Strings that XML cannot hold are kept as data, and read as strings again. A file
/// that is no property list is renamed to "defaults.plist.damaged-1" (or the next number that is
/// free) and logged.
class FileUserDefaults : public UserDefaults {
  public:
    enum class Wanted : std::uint8_t { Stored, Removed };
    using Told = std::function<void(std::string_view key, Wanted wanted, bool isDone)>;

    /// The folder is made when something is stored first; empty where the user has none. `told` is
    /// told of each string to store and each value to remove whether it was. The value of `secret`
    /// counts for more than what lies beside it. The log outlives this object.
    FileUserDefaults(std::string folder, Log& log, Told told = {}, std::string secret = {});

    bool boolForKey(std::string_view key) const override;
    std::optional<std::string> stringForKey(std::string_view key) const override;
    void setString(std::string_view key, std::string_view value) override;
    /// Needs no space: on a full disk the file is written over where it lies, and given up as a
    /// whole where that fails, too, and it is the secret.
    void removeObject(std::string_view key) override;

  private:
    /// None when there is a file that cannot be read and has to stay.
    std::optional<PropertyList::Dictionary> read() const;
    std::optional<PropertyList> value(std::string_view key) const;
    bool setAside(const std::string& why) const;
    bool store(std::string_view key, std::string_view value);
    bool remove(std::string_view key);
    bool write(const PropertyList::Dictionary& dictionary);
    void complain(const std::string& text) const;

    const std::string folder_;
    const std::string file_;
    Log& log_;
    const Told told_;
    const std::string secret_;
    mutable std::string lastComplaint_;
};

}  // namespace zelvo::platform
