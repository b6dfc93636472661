#pragma once

#include <memory>

#include "server/screen/ScreenOpening.h"

namespace zelvo::server {

/// The desktop of this session, as DISPLAY and WAYLAND_DISPLAY name it. Never null: where there is
/// none the result says why.
std::unique_ptr<ScreenOpening> openScreen();

}  // namespace zelvo::server
