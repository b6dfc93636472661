#pragma once

#include "platform/Authorization.h"

namespace zelvo::platform {

class Console;

/// Another authorization, which finds the terminal as its user left it while it may ask them there.
/// Main thread only.
class TerminalAuthorization final : public Authorization {
  public:
    /// Both outlive this object and its references.
    TerminalAuthorization(Authorization& asks, Console& console) : asks_(asks), console_(console) {}

    std::int32_t create(const std::string& tool,
                        std::unique_ptr<AuthorizationReference>& reference) override;

  private:
    Authorization& asks_;
    Console& console_;
};

}  // namespace zelvo::platform
