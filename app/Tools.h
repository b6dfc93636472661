#pragma once

namespace zelvo {

/// File names of the privileged tools in the resource folder.
inline constexpr const char* EnableScreenSharingTool =
    "enable-screen-sharing-and-guess-access.tool";
inline constexpr const char* DisableScreenSharingTool =
    "disable-screen-sharing-and-guess-access.tool";
inline constexpr const char* DisconnectScreenSharingTool = "disconnect-screen-sharing.tool";

}  // namespace zelvo
