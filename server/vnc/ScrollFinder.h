#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "server/screen/Screen.h"

namespace zelvo::server {

/// Finds what of a changed picture was there before, higher or lower: viewers have it and can copy
/// it, where drawing it anew costs much more.
class ScrollFinder {
  public:
    struct Scroll {
        Rectangle target;
        /// So many rows further down, or, where it is negative, up, was what is at the target now.
        int from = 0;
    };

    /// Since the last call the picture has changed in these parts and nowhere else, save where the
    /// size is another.
    std::optional<Scroll> find(std::span<const std::uint32_t> pixels, Size size,
                               const std::vector<Rectangle>& changed);
    /// Changes pass from now on of which it is not told.
    void forget() { size_ = {}; }

  private:
    void read(std::span<const std::uint32_t> pixels, const Rectangle& part);
    int commonShift(const Rectangle& cells) const;
    Scroll largest(const Rectangle& cells, int from) const;
    std::size_t at(int column, int row) const {
        return static_cast<std::size_t>(column) * static_cast<std::size_t>(size_.height) +
               static_cast<std::size_t>(row);
    }

    Size size_;
    /// Of each row of each column of the picture, 64 pixels wide: what stands for these pixels.
    std::vector<std::uint64_t> cells_;
    std::vector<std::uint64_t> before_;
};

}  // namespace zelvo::server
