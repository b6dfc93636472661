#pragma once

namespace zelvo::platform {

/// Has the process leave no core file when it crashes: what holds a link's key would leave it
/// there. Programs that are started from here inherit that, and may raise the limit for themselves.
/// A program that gets cores by a pipe (core_pattern in /proc/sys/kernel) gets these, too, and
/// decides by itself whether to heed the limit. Who may not be dumped (prctl(2)) gives it none
/// either, but lets nobody else follow /proc/PID/exe: the desktop's portals refuse whom they cannot
/// look up there, and the tools of Screen Sharing, run by its user, do not know the server again.
void leaveNoCrashFile();

}  // namespace zelvo::platform
