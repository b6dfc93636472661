#pragma once

namespace zelvo::platform {

enum class TerminateReply { Cancel, Now, Later };

/// What the application framework and the main window ask of the controller. Main thread only.
class ApplicationDelegate {
  public:
    virtual ~ApplicationDelegate() = default;

    /// Once, when the run loop runs and the window is there.
    virtual void applicationDidFinishLaunching() = 0;
    /// Each time the application comes to the front.
    virtual void applicationDidBecomeActive() = 0;
    /// On every quit request. `Later` is answered by
    /// Application::replyToApplicationShouldTerminate.
    virtual TerminateReply applicationShouldTerminate() = 0;
    /// On the window's close button: whether the window may close.
    virtual bool windowShouldClose() = 0;
};

}  // namespace zelvo::platform
