#pragma once

#include <cstddef>
#include <string>

#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::serving {

/// A socket that listens on the address; port 0 picks a free one. None when it is taken or not ours
/// to use.
platform::FileDescriptor listenOn(const std::string& address, int port);
int portOf(int socket);

/// How many connections the process can have at once, once it may open as many files as it is let.
std::size_t connectionLimit();

}  // namespace zelvo::serving
