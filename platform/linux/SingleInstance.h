#pragma once

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>

#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::platform {

/// One Zelvo for each user: two would share the kept link, and the first to quit would take it back
/// under the other. Holds a lock that ends with the process, however it ends.
class SingleInstance {
  public:
    /// `stateFolder` is made where it is missing; empty for a user without one.
    explicit SingleInstance(const std::string& stateFolder) {
        if (stateFolder.empty())
            return;
        std::error_code failed;
        std::filesystem::create_directories(stateFolder, failed);
        auto path = stateFolder + "/running";
        lock_.reset(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
        // A folder that cannot be written keeps nobody from being helped.
        first_ = !lock_ || ::flock(lock_.get(), LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
    }

    /// False while another process of this user holds the lock.
    bool isFirst() const { return first_; }

  private:
    FileDescriptor lock_;
    bool first_ = true;
};

}  // namespace zelvo::platform
