#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zelvo::platform {

/// The value of a variable in a file of shell assignments such as /etc/os-release, without its
/// quotes and escapes; the last assignment counts. None when there is none. Nothing is expanded.
std::optional<std::string> shellAssignment(std::string_view text, std::string_view name);

}  // namespace zelvo::platform
