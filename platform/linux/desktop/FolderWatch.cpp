#include "platform/linux/desktop/FolderWatch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <utility>

namespace zelvo::platform {

FolderWatch::FolderWatch(const std::string& folder, std::vector<std::string> names,
                         std::function<void()> changed)
    : names_(std::move(names)),
      changed_(std::move(changed)),
      inotify_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    constexpr auto events = IN_CREATE | IN_CLOSE_WRITE | IN_DELETE | IN_MODIFY | IN_MOVE;
    if (!inotify_ || ::inotify_add_watch(inotify_.get(), folder.c_str(), events) < 0)
        return;
    notifier_.emplace(inotify_.get(), QSocketNotifier::Read);
    QObject::connect(&*notifier_, &QSocketNotifier::activated, &*notifier_, [this] {
        if (takeNotices())
            changed_();
    });
}

bool FolderWatch::takeNotices() const {
    auto any = false;
    alignas(inotify_event) std::array<char, 4096> notices;
    for (ssize_t size; (size = ::read(inotify_.get(), notices.data(), notices.size())) > 0;) {
        for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
            inotify_event notice;
            std::memcpy(&notice, notices.data() + at, sizeof notice);
            const auto* name = notices.data() + at + sizeof notice;
            // Where notices were lost, any file may have changed.
            any = any || (notice.mask & IN_Q_OVERFLOW) != 0 ||
                  (notice.len > 0 && std::find(names_.begin(), names_.end(), name) != names_.end());
            at += sizeof notice + notice.len;
        }
    }
    return any;
}

}  // namespace zelvo::platform
