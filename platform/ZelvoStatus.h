#pragma once

#include <cstdint>

namespace zelvo::platform {

/// How far the application has come on its way from Screen Sharing being off to a viewer being
/// connected. Compared by number: "2 or later" means 2 to 7.
enum ZelvoStatus : std::int32_t {
    ZelvoStatusIdle = 0,
    /// Screen Sharing is not listening, or viewers may not ask; evaluated again and again.
    ZelvoStatusServiceDisabled = 1,
    /// Screen Sharing is fully on; entering this starts the link and moves on to 3.
    ZelvoStatusServiceEnabled = 2,
    ZelvoStatusMappingPort = 3,
    /// No link came about; the "Router Error" sheet is up.
    ZelvoStatusMappingFailed = 4,
    /// The link exists; entering this moves on to 6.
    ZelvoStatusMappingSucceeded = 5,
    ZelvoStatusWaitingForConnection = 6,
    ZelvoStatusConnected = 7,
};

}  // namespace zelvo::platform
