#pragma once

namespace zelvo::platform {

/// Whether an X11 or a Wayland display is there for a window, or the user has asked the toolkit for
/// another kind of screen.
bool displayIsThere();

}  // namespace zelvo::platform
