#pragma once

#include "platform/Workspace.h"

namespace zelvo::platform {

/// The user's desktop by its own command-line tools and its message bus, without a display.
class QtWorkspace final : public Workspace {
  public:
    bool openUrl(const std::string& url) override;
    /// The settings windows of the common desktops, of this user's own.
    std::vector<std::unique_ptr<RunningApplication>> runningApplications() override;
};

}  // namespace zelvo::platform
