#pragma once

#include <cstdint>
#include <string_view>

namespace zelvo {

/// Searches in listings of sockets, line by line, ASCII text. Both take time in proportion to the
/// text alone, whatever it holds.

/// Whether a line with an asterisk, any one character, exactly the port and a whitespace character
/// also says LISTEN anywhere.
bool listsWildcardListener(std::string_view listing, std::uint16_t port);

/// Whether a line has the port's digits anywhere but at its beginning, and ESTABLISHED anywhere
/// behind them. Deliberately loose: either side's port counts, and so does a longer number that
/// holds the digits.
bool listsEstablishedConnection(std::string_view listing, std::uint16_t port);

}  // namespace zelvo
