#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "platform/Authorization.h"

namespace zelvo::platform {

class Log;

/// Where we are root, or are to act as ourselves, tools are started with the shell. A tool that
/// root starts for another user, who asked through sudo or pkexec, gets that user's name in the
/// environment variable ZELVO_USER.
///
/// Else polkit decides, asking the user where it has to, and a helper that then runs as root starts
/// the tool. The helper knows the tools by name and has a folder of its own for them: only the last
/// part of a tool's path counts. Each reference asks anew. For the tools that only take something
/// back there is a helper of their own, which polkit lets the user in front of the computer start.
class SystemAuthorization : public Authorization {
  public:
    struct Options {
        /// Tools run as the user itself.
        bool asSelf = false;
        std::string shell = "/bin/sh";
        std::string pkexec = "/usr/bin/pkexec";
        /// The folder of the installed helpers; empty for where this build installs them.
        std::string helpers = "";
        /// Called with the file name of each tool that was started.
        std::function<void(std::string_view tool)> started = [](std::string_view) {};
    };

    /// The log, which outlives this object, gets polkit's and the helper's reasons for a failure.
    SystemAuthorization(Log& log, Options options);

    std::int32_t create(const std::string& tool,
                        std::unique_ptr<AuthorizationReference>& reference) override;

  private:
    Log& log_;
    Options options_;
};

}  // namespace zelvo::platform
