#pragma once

#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::platform {

/// A descriptor that becomes readable when the process has ended (pidfd_open(2)); none where the
/// process is not there or the kernel is older than 5.3. By number, as the header of Debian 12's C
/// library does not link with C++.
inline FileDescriptor processDescriptor(pid_t process) {
    return FileDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, process, 0)));
}

}  // namespace zelvo::platform
