#include "platform/linux/machine/SystemRandom.h"

#include <sys/random.h>

#include <cerrno>
#include <cstdlib>

namespace zelvo::platform {

std::uint32_t SystemRandom::uniform32() {
    std::uint32_t value = 0;
    for (;;) {
        // So few bytes come whole or not at all.
        if (::getrandom(&value, sizeof value, 0) == static_cast<ssize_t>(sizeof value))
            return value;
        // Without the system's generator there is no number that may be given out as random.
        if (errno != EINTR)
            std::abort();
    }
}

}  // namespace zelvo::platform
