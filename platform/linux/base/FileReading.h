#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zelvo::platform {

/// The bytes of a regular file; none when it is missing, unreadable, larger than the limit, or
/// anything else than a regular file, whose opening or reading might wait. Any thread.
std::optional<std::vector<std::byte>> readRegularFile(const std::string& path, std::size_t limit);

/// The same as text.
std::optional<std::string> readTextFile(const std::string& path,
                                        std::size_t limit = std::size_t{1} << 20);

/// The text without blanks at both ends.
std::string_view trimmed(std::string_view text);
std::string trimmed(const std::string& text);

}  // namespace zelvo::platform
