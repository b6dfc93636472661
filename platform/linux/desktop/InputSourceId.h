#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace zelvo::platform {

/// The keyboard layout at the index, the first where there is none at it, with its variant, such as
/// "de+nodeadkeys". Both lists are parted by commas, and that of the variants may be shorter. None
/// without a layout.
std::optional<std::string> inputSourceId(const std::string& layouts, const std::string& variants,
                                         std::size_t index = 0);

}  // namespace zelvo::platform
