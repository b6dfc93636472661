#pragma once

#include <QObject>
#include <functional>

#include "platform/Workspace.h"

namespace zelvo::platform {

/// The user's desktop by its own command-line tools and its message bus, without a display.
class QtWorkspace final : public Workspace {
  public:
    /// `refused` is told of each address that no program took.
    explicit QtWorkspace(std::function<void(const std::string& url)> refused = {})
        : refused_(std::move(refused)) {}

    void openUrl(const std::string& url) override;
    /// The settings windows of the common desktops, of this user's own.
    std::vector<std::unique_ptr<RunningApplication>> runningApplications() override;

  private:
    std::function<void(const std::string&)> refused_;
    QObject receiver_;
};

}  // namespace zelvo::platform
