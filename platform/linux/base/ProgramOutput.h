#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace zelvo::platform {

/// Runs the program, found along PATH, in the process's own environment and gives its standard
/// output; its errors go nowhere. None when it cannot be started, fails, writes more than a MiB, or
/// takes longer than the limit, after which it is ended. Any thread.
std::optional<std::string> programOutput(const std::vector<std::string>& arguments,
                                         std::chrono::milliseconds limit);

}  // namespace zelvo::platform
