#pragma once

#include <string>
#include <vector>

namespace zelvo::platform {

/// Starts a program in a session of its own, with nothing on standard input, the given environment
/// ("NAME=value"), its standard output and error at `output`, or ours where that is -1, and no
/// other open file. It is no child of this process, which has nothing to wait for. Returns when the
/// program runs: 0, or the errno value of what failed. Any thread.
int startDetached(const std::vector<std::string>& arguments,
                  const std::vector<std::string>& environment, int output = -1);

}  // namespace zelvo::platform
