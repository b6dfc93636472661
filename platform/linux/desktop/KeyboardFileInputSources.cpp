#include "platform/linux/desktop/KeyboardFileInputSources.h"

#include <utility>

#include "platform/linux/base/FileReading.h"
#include "platform/linux/base/ShellAssignments.h"

namespace zelvo::platform {

KeyboardFileInputSources::KeyboardFileInputSources(std::string file) : file_(std::move(file)) {}

std::optional<std::string> KeyboardFileInputSources::currentKeyboardInputSourceId() const {
    auto text = readTextFile(file_);
    if (!text)
        return std::nullopt;
    auto first = [&](const char* name) {
        auto list = shellAssignment(*text, name).value_or("");
        return trimmed(list.substr(0, list.find(',')));
    };
    auto layout = first("XKBLAYOUT");
    if (layout.empty())
        return std::nullopt;
    auto variant = first("XKBVARIANT");
    return variant.empty() ? layout : layout + "+" + variant;
}

}  // namespace zelvo::platform
