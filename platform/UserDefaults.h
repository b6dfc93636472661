#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zelvo::platform {

/// The application's per-user defaults. Every call sees the store as it is now. Main thread only.
class UserDefaults {
  public:
    virtual ~UserDefaults() = default;

    /// The boolean reading of the value (PropertyList::booleanReading); false when absent.
    virtual bool boolForKey(std::string_view key) const = 0;
    /// A string, or a number in its decimal form; none for other kinds and when absent.
    virtual std::optional<std::string> stringForKey(std::string_view key) const = 0;
    /// Stores the string. A store that cannot be written leaves a log line and the old value.
    virtual void setString(std::string_view key, std::string_view value) = 0;
    /// Removes the value, if any.
    virtual void removeObject(std::string_view key) = 0;
};

}  // namespace zelvo::platform
