#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::platform {

class Log;

/// A helper that runs as root, for one request. Polkit decides, and asks the user, once, when it
/// starts; from then on it waits for a request, which so needs no second question. Main
/// thread only.
class PolkitHelper {
  public:
    /// Both programs by their whole paths.
    PolkitHelper(Log& log, std::string pkexec, std::string helper);
    PolkitHelper(const PolkitHelper&) = delete;
    PolkitHelper& operator=(const PolkitHelper&) = delete;
    /// Ends the helper, which has no right any more then.
    ~PolkitHelper() { (void)end(); }

    /// Starts the helper and blocks until the user has answered. An authorization status.
    std::int32_t start();
    /// Has the tool of that name started; false when it was not. Ends the helper.
    bool startTool(std::string_view name);

  private:
    bool spawn();
    /// Whether the next thing that the helper says is this.
    bool answers(std::string_view answer);
    void logErrors();
    /// The status as waitpid(2) gives it.
    int end();

    Log& log_;
    const std::string pkexec_;
    const std::string helper_;
    pid_t process_ = -1;
    FileDescriptor input_;
    FileDescriptor output_;
    FileDescriptor errors_;
    std::string errorText_;
};

}  // namespace zelvo::platform
