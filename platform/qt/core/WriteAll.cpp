#include "platform/qt/core/WriteAll.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace zelvo::platform {

bool writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        auto written = ::write(descriptor, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            pollfd room{descriptor, POLLOUT, 0};
            ::poll(&room, 1, -1);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

}  // namespace zelvo::platform
