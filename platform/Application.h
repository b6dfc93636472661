#pragma once

namespace zelvo::platform {

enum class ActivationPolicy { Regular = 0, Accessory = 1 };

/// The application framework. Main thread only.
class Application {
  public:
    virtual ~Application() = default;

    /// Asks the delegate whether the application may end (AppDelegate::applicationShouldTerminate).
    /// While an answer is pending, further requests change nothing.
    virtual void terminate() = 0;
    /// The delegate's answer to a request that it promised to answer later: true ends the run loop,
    /// false cancels the request.
    virtual void replyToApplicationShouldTerminate(bool shouldTerminate) = 0;

    /// Accessory: no presence in the task bar.
    virtual void setActivationPolicy(ActivationPolicy policy) = 0;
    /// Draws the task bar's entry anew.
    virtual void displayDockTile() = 0;
    /// Brings the application to the front.
    virtual void activateIgnoringOtherApps(bool ignoring) = 0;
};

}  // namespace zelvo::platform
