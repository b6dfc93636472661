#pragma once

#include <string>
#include <string_view>

namespace zelvo::platform {

/// Text from elsewhere for a message: in quotes, cut when it is long, and without anything that a
/// terminal obeys.
std::string inQuotes(std::string_view text);

}  // namespace zelvo::platform
