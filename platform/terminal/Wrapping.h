#pragma once

#include <string>
#include <vector>

namespace zelvo::platform {

/// The text in lines of at most so many columns, broken at spaces and between ideographs, and in
/// the middle of a word only where that is longer than a line. What steers a terminal becomes "?".
std::vector<std::string> wrapped(const std::string& text, int columns);

/// Columns that it takes in a terminal.
int columnsOf(const std::string& text);

}  // namespace zelvo::platform
