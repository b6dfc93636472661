#include "platform/linux/base/CrashFile.h"

#include <sys/resource.h>

namespace zelvo::platform {

void leaveNoCrashFile() {
    rlimit limit{};
    ::getrlimit(RLIMIT_CORE, &limit);
    limit.rlim_cur = 0;
    ::setrlimit(RLIMIT_CORE, &limit);
}

}  // namespace zelvo::platform
