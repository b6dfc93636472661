#pragma once

#include <memory>
#include <string>
#include <vector>

namespace zelvo::platform {

/// Another application that is running.
class RunningApplication {
  public:
    virtual ~RunningApplication() = default;
    virtual std::string bundleIdentifier() const = 0;
    /// Asks it to quit, without waiting.
    virtual void terminate() = 0;
};

/// The user's desktop. Main thread only.
class Workspace {
  public:
    virtual ~Workspace() = default;

    /// Has the user's browser, or whatever takes such addresses, open this one, and returns at
    /// once. Where nothing does, the front end says so.
    virtual void openUrl(const std::string& url) = 0;
    /// In the order in which the system lists them. The system's settings window is
    /// "com.apple.systempreferences".
    virtual std::vector<std::unique_ptr<RunningApplication>> runningApplications() = 0;
};

}  // namespace zelvo::platform
