#pragma once

#include <optional>

namespace zelvo::platform {

/// Answers -h, --help and --version, and refuses everything else by its name. The exit status, or
/// none when the application is to run.
std::optional<int> answerCommandLine(int argc, char* argv[]);

}  // namespace zelvo::platform
