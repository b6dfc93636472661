#include "platform/linux/machine/OsReleaseProcessInfo.h"

#include <charconv>
#include <string_view>
#include <utility>

#include "platform/linux/base/FileReading.h"
#include "platform/linux/base/ShellAssignments.h"

namespace zelvo::platform {

namespace {

std::optional<OperatingSystemVersion> version(std::string_view text) {
    OperatingSystemVersion result;
    std::int64_t* fields[] = {&result.majorVersion, &result.minorVersion, &result.patchVersion};
    for (auto* field : fields) {
        auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *field);
        if (error != std::errc() || *field < 0)
            return std::nullopt;
        text.remove_prefix(static_cast<std::size_t>(end - text.data()));
        if (text.empty())
            return result;
        if (text[0] != '.')
            return std::nullopt;
        text.remove_prefix(1);
    }
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
