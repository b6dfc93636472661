#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace zelvo::platform {

/// The user for whom pkexec(1) started this process as root. Value type.
struct AskingUser {
    uid_t id = 0;
    gid_t group = 0;
    std::string name;

    /// None when pkexec did not start us, or not for an ordinary user.
    static std::optional<AskingUser> ofProcess();

    /// While it lives, files are looked at with this user's rights and no more.
    class Rights;
};

class AskingUser::Rights {
  public:
    explicit Rights(const AskingUser& user);
    Rights(const Rights&) = delete;
    Rights& operator=(const Rights&) = delete;
    /// Ends the process where root's rights cannot be taken up again.
    ~Rights();

    /// Whether the user's rights could be taken up.
    explicit operator bool() const { return isTaken_; }

  private:
    std::vector<gid_t> groups_;
    bool isTaken_ = false;
};

}  // namespace zelvo::platform
