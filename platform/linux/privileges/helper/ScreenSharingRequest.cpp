#include "platform/linux/privileges/helper/ScreenSharingRequest.h"

#include <algorithm>
#include <array>

#include "platform/linux/privileges/helper/Quoting.h"

namespace zelvo::platform {

namespace {

constexpr std::array<std::string_view, 3> toolNames{"enable-screen-sharing-and-guess-access.tool",
                                                    "disable-screen-sharing-and-guess-access.tool",
                                                    "disconnect-screen-sharing.tool"};

}  // namespace

bool ScreenSharingRequest::onlyTakesBack(std::string_view tool) {
    return tool == toolNames[1] || tool == toolNames[2];
}

ScreenSharingRequest::Result ScreenSharingRequest::parse(std::string_view bytes) {
    if (bytes.size() > longest)
        return {std::nullopt, "The request is too long."};
    if (!bytes.ends_with('\0'))
        return {std::nullopt, "The request " + inQuotes(bytes) + " is not complete."};
    auto next = [&] {
        auto end = bytes.find('\0');
        auto record = bytes.substr(0, end);
        bytes.remove_prefix(end + 1);
        return record;
    };
    ScreenSharingRequest request;
    request.tool = next();
    if (std::find(toolNames.begin(), toolNames.end(), request.tool) == toolNames.end())
        return {std::nullopt, inQuotes(request.tool) + " is none of the Screen Sharing tools."};
    while (!bytes.empty()) {
        auto record = next();
        auto equals = record.find('=');
        if (equals == record.npos)
            return {std::nullopt, inQuotes(record) + " is no variable."};
        request.variables.emplace_back(record.substr(0, equals), record.substr(equals + 1));
    }
    return {std::move(request), ""};
}

std::string screenSharingRequest(std::string_view tool,
                                 const std::vector<std::string>& assignments) {
    std::string result(tool);
    result += '\0';
    for (const auto& assignment : assignments)
        result.append(assignment).append(1, '\0');
    return result;
}

}  // namespace zelvo::platform
