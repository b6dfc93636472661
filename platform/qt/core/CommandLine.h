#pragma once

#include <optional>

namespace zelvo::platform {

struct CommandLine {
    /// What -h, --help, --version and everything that is refused by its name end with; none when
    /// the application is to run.
    std::optional<int> exitStatus;
    /// Besides opening a window, the application asks who may come in on the standard output and
    /// takes words from the standard input.
    bool asksInTerminal = false;
};

/// Answers at once what needs no application.
CommandLine readCommandLine(int argc, char* argv[]);

}  // namespace zelvo::platform
