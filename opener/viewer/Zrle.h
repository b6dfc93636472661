#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "opener/viewer/Inflater.h"

namespace zelvo::opener {

/// Rectangles in ZRLE (RFC 6143, section 7.7.6), of pixels 0x00RRGGBB, as such in Raw. They are
/// unpacked as they come, in rows of tiles, so that none takes memory for more than one.
class Zrle {
  public:
    /// The next data is of a rectangle of this size.
    void begin(std::size_t width, std::size_t height);
    /// Takes data, and appends to `to` the pixels of the rows of tiles that are whole now, until
    /// there are `most` bytes. False where no rectangle is like that, after which nothing that
    /// comes is of use.
    bool receive(std::string_view& data, std::string& to, std::size_t most);
    /// Whether there is more in what it has taken.
    bool hasMore() const { return hasMore_; }
    /// Whether the rectangle has come as a whole.
    bool isWhole() const { return top_ == height_; }

  private:
    struct Reader;
    enum class Tile : std::uint8_t { Whole, Cut, Nonsense };

    static constexpr std::size_t side = 64;
    /// One of single pixels, each with its length of 1.
    static constexpr std::size_t largestTile = 1 + side * side * 4;
    using Colours = std::array<char, 3>;

    bool takeTiles(std::string& to, std::size_t most);
    Tile tile(Reader& reader);
    Tile plain(Reader& reader);
    Tile packed(Reader& reader, std::size_t colours);
    Tile runs(Reader& reader, std::size_t colours);
    bool readPalette(Reader& reader, std::size_t colours);
    void set(std::size_t at, const Colours& colour);
    std::size_t tileWidth() const { return std::min(side, width_ - left_); }
    std::size_t tileHeight() const { return std::min(side, height_ - top_); }

    Inflater inflater_;
    std::string unpacked_;
    bool hasMore_ = false;
    std::size_t width_ = 0;
    std::size_t height_ = 0;
    /// The tile that comes next.
    std::size_t left_ = 0;
    std::size_t top_ = 0;
    std::array<Colours, 128> palette_{};
    /// The row of tiles that it belongs to.
    std::string row_;
};

}  // namespace zelvo::opener
