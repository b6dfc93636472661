#pragma once

#include <string>

namespace zelvo::platform {
class ProcessInfo;
}

namespace zelvo {

/// The running system's version, such as "12.4.1", or "12.4" without its patch number. Numbers that
/// cannot be obtained are 0.
std::string operatingSystemVersionString(const platform::ProcessInfo& processInfo,
                                         bool includePatch);

}  // namespace zelvo
