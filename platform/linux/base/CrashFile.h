#pragma once

namespace zelvo::platform {

/// Has the process leave no core when it crashes, neither in a file nor to a program that gets
/// cores by a pipe (core_pattern in /proc/sys/kernel): what holds a link's key would leave it
/// there. Programs that are started from here inherit that, and may raise the limit for themselves.
/// Where the limit may not be above 0 (its hard one), a pipe's program gets the core all the same.
/// Not by forbidding dumps (prctl(2)): that lets nobody else follow /proc/PID/exe, and the
/// desktop's portals refuse whom they cannot look up there, and the tools of Screen Sharing, run by
/// its user, do not know the server again.
void leaveNoCrashFile();

}  // namespace zelvo::platform
