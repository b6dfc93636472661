#pragma once

#include <optional>
#include <string>

namespace zelvo::platform {

/// The application's identity and resources. Main thread only.
class Bundle {
  public:
    virtual ~Bundle() = default;

    virtual std::string bundleIdentifier() const = 0;
    /// The version that users see, such as "1.0".
    virtual std::string shortVersionString() const = 0;
    /// The folder of the resources, without a slash at the end.
    virtual std::string resourcePath() const = 0;
    /// The resource folder of the bundle with the identifier; none when there is no such bundle.
    virtual std::optional<std::string> resourcePath(const std::string& identifier) const = 0;
    /// The text of the key in the string table of the user's language; the key itself where the
    /// table has no entry.
    virtual std::string localizedString(const std::string& key) const = 0;
    /// The user's Library folder, without a slash at the end; none when there is no home folder.
    virtual std::optional<std::string> userLibraryDirectory() const = 0;
};

}  // namespace zelvo::platform
