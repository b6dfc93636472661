#include "platform/linux/machine/OsReleaseProcessInfo.h"

#include <charconv>
#include <string_view>
#include <utility>

#include "platform/linux/base/FileReading.h"
#include "platform/linux/base/ShellAssignments.h"

namespace zelvo::platform {

namespace {

/// What follows the leading numbers, as in "15.6 SP1", is passed over.
std::optional<OperatingSystemVersion> version(std::string_view text) {
    OperatingSystemVersion result;
    const auto* at = text.data();
    const auto* end = at + text.size();
    auto isNumber = [&](std::int64_t& field) {
        // A sign is none of ours.
        if (at == end || *at < '0' || *at > '9')
            return false;
        auto [behind, error] = std::from_chars(at, end, field);
        at = behind;
        return error == std::errc();
    };
    auto isDot = [&] { return at != end && *at++ == '.'; };
    if (!isNumber(result.majorVersion))
        return std::nullopt;
    if (isDot() && isNumber(result.minorVersion) && isDot())
        (void)isNumber(result.patchVersion);
    return result;
}

}  // namespace

OsReleaseProcessInfo::OsReleaseProcessInfo(std::string root) : root_(std::move(root)) {}

std::optional<OperatingSystemVersion> OsReleaseProcessInfo::operatingSystemVersion() const {
    auto text = readTextFile(root_ + "/etc/os-release");
    if (!text)
        text = readTextFile(root_ + "/usr/lib/os-release");
    if (!text)
        return std::nullopt;
    auto id = shellAssignment(*text, "VERSION_ID");
    return id ? version(*id) : std::nullopt;
}

}  // namespace zelvo::platform
