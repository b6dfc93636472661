#pragma once

#include <QString>
#include <string>

namespace zelvo::platform {

/// A text that comes from outside, for eyes: what cannot be seen, ends a line, changes the
/// direction of writing or steers a terminal becomes the percent escapes of its bytes.
QString shownText(const std::string& text);

/// The same for a place that holds one line: cut after 1,024 characters, which it then says.
QString shownLine(const std::string& text);

}  // namespace zelvo::platform
