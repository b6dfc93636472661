#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zelvo::platform {

/// What a tool may know of the session that it works for: environment variables of a fixed list,
/// each checked, the files and folders that they name included.
class SessionVariables {
  public:
    using Lookup = std::function<std::optional<std::string>(const char* name)>;

    /// The user who asks; what a variable names must be this user's own.
    explicit SessionVariables(uid_t user) : user_(user) {}

    /// Those of the environment that can be used; the others are left out.
    static SessionVariables from(const Lookup& lookup, uid_t user);

    /// Takes a variable. Nothing, or the reason why it is refused. Looks at files with the
    /// effective user's rights. A Wayland display that is no absolute path is sought in
    /// XDG_RUNTIME_DIR, which must come before it.
    std::optional<std::string> add(std::string_view name, const std::string& value);

    /// "NAME=value", in the order in which they were added.
    const std::vector<std::string>& assignments() const { return assignments_; }

  private:
    std::optional<std::string> value(std::string_view name) const;
    bool isOwnSocket(const std::string& display) const;

    const uid_t user_;
    std::vector<std::string> assignments_;
};

}  // namespace zelvo::platform
