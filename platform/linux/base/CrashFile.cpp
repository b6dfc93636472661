#include "platform/linux/base/CrashFile.h"

#include <sys/resource.h>

#include <algorithm>

namespace zelvo::platform {

void leaveNoCrashFile() {
    rlimit limit{};
    ::getrlimit(RLIMIT_CORE, &limit);
    // One byte is too little for any core file. The kernel heeds this number, and no other, also
    // where a program gets cores by a pipe: its mark against handlers that handle themselves.
    limit.rlim_cur = std::min<rlim_t>(1, limit.rlim_max);
    ::setrlimit(RLIMIT_CORE, &limit);
}

}  // namespace zelvo::platform
