#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace zelvo::platform {

/// From the user database. Any thread.
std::optional<std::string> nameOfUser(uid_t user);
/// Empty when there is no such user, or no home folder.
std::string homeOfUser(uid_t user);

}  // namespace zelvo::platform
