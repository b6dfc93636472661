#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zelvo::opener {

/// The picture's pixels, each red, green and blue, row by row. None where it is damaged, of another
/// size, or made in several scans, which would let a few bytes take seconds.
std::optional<std::string> decodeJpeg(std::string_view jpeg, std::uint32_t width,
                                      std::uint32_t height);

}  // namespace zelvo::opener
