#pragma once

#include <QSocketNotifier>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::platform {

/// Tells when one of the files of a folder may have changed, from its construction to its
/// destruction, on the thread of its construction, whose event loop it needs. Tells nothing of a
/// folder that is not there at its construction.
class FolderWatch {
  public:
    FolderWatch(const std::string& folder, std::vector<std::string> names,
                std::function<void()> changed);

  private:
    /// Whether one of the files is among what the kernel has to tell.
    bool takeNotices() const;

    const std::vector<std::string> names_;
    const std::function<void()> changed_;
    FileDescriptor inotify_;
    std::optional<QSocketNotifier> notifier_;
};

}  // namespace zelvo::platform
