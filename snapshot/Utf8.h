#pragma once

#include <cstddef>
#include <string_view>

namespace zelvo {

/// Length of the well-formed UTF-8 sequence at the beginning of the text (RFC 3629), 0 when there
/// is none.
std::size_t utf8SequenceLength(std::string_view text);

}  // namespace zelvo
