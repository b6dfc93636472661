#pragma once

#include <optional>
#include <string>

namespace zelvo::opener {

struct CommandLine {
    /// What --help, --version and everything that makes no sense end with; none when the program is
    /// to run.
    std::optional<int> exitStatus;
    std::string link;
    std::string name;
    bool viewOnly = false;
    bool printsFacts = false;
    bool says = false;
    bool once = false;
    bool serves = false;
};

/// Answers at once what needs no program. What may be a link is gone from `argv` afterwards, where
/// every user of this computer could read it.
CommandLine readCommandLine(int argc, char* argv[]);

}  // namespace zelvo::opener
