#pragma once

#include <optional>

namespace zelvo::platform {

/// Answers --version and --help, and refuses everything else. The exit status, or none when the
/// application is to run.
std::optional<int> answerCommandLine(int argc, char* argv[]);

}  // namespace zelvo::platform
