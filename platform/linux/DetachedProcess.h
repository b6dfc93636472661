#pragma once

#include <string>
#include <vector>

namespace zelvo::platform {

enum class ParentOfDetached {
    /// The process is left to init.
    Init,
    /// A process of our own stays between it and init until it has ended.
    Keeper
};

/// Starts a program in a session of its own, with nothing on standard input, the given environment
/// ("NAME=value") and no other open file than our standard output and error. It is no child of
/// this process, which has nothing to wait for. Returns when the program runs: 0, or the errno
/// value of what failed. Any thread.
int startDetached(const std::vector<std::string>& arguments,
                  const std::vector<std::string>& environment,
                  ParentOfDetached parent = ParentOfDetached::Init);

}  // namespace zelvo::platform
