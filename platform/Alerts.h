#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace zelvo::platform {

/// Responses of an alert: its buttons in their order.
inline constexpr int AlertFirstButtonReturn = 1000;
inline constexpr int AlertSecondButtonReturn = 1001;

/// Which of the application's alerts it is, in any language.
enum class AlertKind : std::uint8_t {
    /// Screen Sharing could not be switched on.
    ScreenSharingIsOff,
    /// Quitting would end a viewer's session.
    SessionUnderWay,
    /// What the user wants would end a viewer's session.
    EndsSession,
    /// No link came about.
    NoLink,
};

struct Alert {
    AlertKind kind{};
    std::string messageText;
    std::string informativeText;
    /// Name of an image, such as "NSCaution".
    std::string icon;
    std::vector<std::string> buttonTitles;
    /// Shows a help button; pressing it calls `showHelp` and leaves the alert up.
    bool showsHelp = false;
    std::function<bool()> showHelp;
};

/// Sheets on the main window: one at a time, in the order asked for. Main thread only.
class Alerts {
  public:
    virtual ~Alerts() = default;

    /// Shows the alert and returns at once. `done` runs once, later, with the response; not at all
    /// when the application ends before the user has answered.
    virtual void beginSheet(Alert alert, std::function<void(int response)> done) = 0;
};

}  // namespace zelvo::platform
