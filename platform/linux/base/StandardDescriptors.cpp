#include "platform/linux/base/StandardDescriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <initializer_list>

namespace zelvo::platform {

void occupyStandardDescriptors() {
    for (int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        // Takes the lowest number that is free, which is this one.
        if (::fcntl(descriptor, F_GETFD) < 0)
            (void)::open("/dev/null", O_RDWR);
    }
}

}  // namespace zelvo::platform
