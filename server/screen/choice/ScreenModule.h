#pragma once

#include <memory>

#include "server/screen/ScreenOpening.h"

namespace zelvo::server {

/// A desktop whose libraries weigh something is a module beside screensharingd, which is loaded
/// only where it may be the desktop: a file with this one function. It leaves the opening null
/// where the session is none of its desktop's.
using OpenScreenModule = void (*)(std::unique_ptr<ScreenOpening>& opening);

/// Its name there, as
///   extern "C" void zelvoOpenScreen(std::unique_ptr<ScreenOpening>& opening)
inline constexpr const char* openScreenModule = "zelvoOpenScreen";

}  // namespace zelvo::server
