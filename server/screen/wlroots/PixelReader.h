#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "server/screen/Screen.h"

namespace zelvo::server {

/// A copy of an output as it lies in memory. The format is one of wl_shm, the transform one of
/// wl_output, by which the output is turned when it is looked at.
struct PixelLayout {
    const std::byte* data = nullptr;
    std::uint32_t format = 0;
    Size size;
    int stride = 0;
    bool isUpsideDown = false;
    int transform = 0;
};

/// The size as somebody sees it who stands before the output.
Size turned(Size size, int transform);

/// Reads the pixels of a copy as they are looked at.
class PixelReader {
  public:
    /// None where the format is unknown.
    static std::optional<PixelReader> make(const PixelLayout& layout);

    /// So many pixels from the point on to the right, as 0x00RRGGBB.
    void read(Point from, int count, std::uint32_t* to) const;

  private:
    PixelReader() = default;

    const std::byte* first_ = nullptr;
    /// From a pixel to the one right of it, and below it, in bytes.
    std::ptrdiff_t right_ = 0;
    std::ptrdiff_t down_ = 0;
    std::ptrdiff_t bytes_ = 0;
    /// Where the colours are, and how many bits each has.
    unsigned red_ = 0;
    unsigned green_ = 0;
    unsigned blue_ = 0;
    unsigned bits_ = 0;
};

}  // namespace zelvo::server
