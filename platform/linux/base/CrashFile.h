#pragma once

namespace zelvo::platform {

/// Has the process leave no core file when it crashes: what holds a link's key would leave it
/// there. Programs that are started from here inherit that, and may raise the limit for themselves.
void leaveNoCrashFile();

}  // namespace zelvo::platform
