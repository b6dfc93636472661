#pragma once

#include <string>

#include "platform/Authorization.h"

namespace zelvo::platform {

/// Starts tools with the shell: directly where we are root or are to act as ourselves, else through
/// pkexec(1). A tool that root starts for another user, who asked through sudo or pkexec, gets that
/// user's name in the environment variable ZELVO_USER.
class SystemAuthorization : public Authorization {
  public:
    struct Options {
        /// Tools run as the user itself.
        bool asSelf = false;
        std::string pkexec = "/usr/bin/pkexec";
        std::string shell = "/bin/sh";
    };

    SystemAuthorization();
    explicit SystemAuthorization(Options options);

    std::int32_t create(std::unique_ptr<AuthorizationReference>& reference) override;

  private:
    const Options options_;
};

}  // namespace zelvo::platform
