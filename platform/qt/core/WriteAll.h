#pragma once

#include <string_view>

namespace zelvo::platform {

/// Writes the whole text, waiting where it must. False when the descriptor takes no more.
bool writeAll(int descriptor, std::string_view text);

}  // namespace zelvo::platform
