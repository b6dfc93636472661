#pragma once

namespace zelvo::platform {

/// Whether an X11 or a Wayland display is there for a window, or the user has asked the toolkit for
/// another kind of screen.
bool displayIsThere();

/// Whether the X11 display that is named answers, as far as that can be told without the toolkit.
bool x11IsThere();

}  // namespace zelvo::platform
