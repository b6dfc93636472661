#pragma once

#include <string>
#include <string_view>

namespace zelvo::platform {

/// The text as one line without its end: control characters, and bytes that are not UTF-8, as
/// escapes ("\n", "\x1b"); one line end that closes the text is left out. Any thread.
std::string oneLine(std::string_view text);

}  // namespace zelvo::platform
