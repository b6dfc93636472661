#pragma once

#include <optional>
#include <string>

namespace zelvo::platform {

/// The current layout of the X server, from the rules property of its root window and its
/// keyboard's group, such as "de+nodeadkeys". None when there is no such server or property.
/// `display` as in DISPLAY.
std::optional<std::string> xServerKeyboardLayout(const std::string& display);

}  // namespace zelvo::platform
