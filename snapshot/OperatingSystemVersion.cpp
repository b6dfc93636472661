#include "snapshot/OperatingSystemVersion.h"

#include "platform/ProcessInfo.h"

namespace zelvo {

std::string operatingSystemVersionString(const platform::ProcessInfo& processInfo,
                                         bool includePatch) {
    auto version =
        processInfo.operatingSystemVersion().value_or(platform::OperatingSystemVersion{});
    auto text = std::to_string(version.majorVersion) + "." + std::to_string(version.minorVersion);
    return includePatch ? text + "." + std::to_string(version.patchVersion) : text;
}

}  // namespace zelvo
