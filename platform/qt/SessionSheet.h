#pragma once

namespace zelvo::platform {

/// Identifier of the alert that asks before quitting ends a viewer's session.
inline constexpr const char* SessionSheetIdentifier = "Screen Sharing Session Undergoing";

}  // namespace zelvo::platform
