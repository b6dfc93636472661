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
    /// Besides showing it in a window, the application writes the link to the standard output.
    bool printsLink = false;
    /// Instead of sharing anything, it says what of this machine works, for people or as JSON.
    bool examines = false;
    bool asJson = false;
};

/// Answers at once what needs no application. A link and what comes after it become the arguments
/// of zelvo-open, which takes this process over.
CommandLine readCommandLine(int argc, char* argv[]);

}  // namespace zelvo::platform
