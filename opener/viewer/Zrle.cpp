#include "opener/viewer/Zrle.h"

#include <algorithm>

namespace zelvo::opener {

namespace {

constexpr std::size_t pixelSize = 4;

}  // namespace

/// A tile's bytes, as far as they are there.
struct Zrle::Reader {
    std::string_view bytes;
    bool isCut = false;

    std::size_t byte() {
        if (bytes.empty()) {
            isCut = true;
            return 0;
        }
        const auto value = static_cast<std::uint8_t>(bytes.front());
        bytes.remove_prefix(1);
        return value;
    }
    Colours colour() {
        Colours colour{};
        for (auto& part : colour)
            part = static_cast<char>(byte());
        return colour;
    }
};

void Zrle::begin(std::size_t width, std::size_t height) {
    width_ = width;
    height_ = height;
    left_ = top_ = 0;
    row_.assign(pixelSize * width_ * tileHeight(), '\0');
}

bool Zrle::receive(std::string_view& data, std::string& to, std::size_t most) {
    hasMore_ = true;
    while (hasMore_ && to.size() < most) {
        const auto before = unpacked_.size();
        unpacked_.resize(largestTile);
        const auto size = inflater_.fill(std::span(unpacked_).subspan(before), data);
        if (!size)
            return false;
        unpacked_.resize(before + *size);
        const bool isFull = unpacked_.size() == largestTile;
        if (!takeTiles(to, most))
            return false;
        hasMore_ = isFull || to.size() >= most;
    }
    return true;
}

bool Zrle::takeTiles(std::string& to, std::size_t most) {
    Reader reader{unpacked_};
    auto rest = reader.bytes;
    while (!rest.empty() && to.size() < most) {
        const auto result = isWhole() ? Tile::Nonsense : tile(reader);
        if (result == Tile::Nonsense || (result == Tile::Cut && rest.size() == largestTile))
            return false;
        if (result == Tile::Cut)
            break;
        rest = reader.bytes;
        left_ += tileWidth();
        if (left_ < width_)
            continue;
        to += row_;
        top_ += tileHeight();
        left_ = 0;
        row_.resize(pixelSize * width_ * tileHeight());
    }
    unpacked_.erase(0, unpacked_.size() - rest.size());
    return true;
}

Zrle::Tile Zrle::tile(Reader& reader) {
    const auto kind = reader.byte();
    if (kind == 0)
        return plain(reader);
    if (kind <= 16)
        return packed(reader, kind);
    if (kind == 128 || kind >= 130)
        return runs(reader, kind - 128);
    return Tile::Nonsense;
}

Zrle::Tile Zrle::plain(Reader& reader) {
    const auto pixels = tileWidth() * tileHeight();
    for (std::size_t at = 0; at < pixels && !reader.isCut; ++at)
        set(at, reader.colour());
    return reader.isCut ? Tile::Cut : Tile::Whole;
}

Zrle::Tile Zrle::packed(Reader& reader, std::size_t colours) {
    if (!readPalette(reader, colours))
        return Tile::Cut;
    // One colour takes no bits at all.
    const unsigned bits = colours == 1 ? 0 : colours == 2 ? 1 : colours <= 4 ? 2 : 4;
    std::size_t at = 0;
    for (std::size_t y = 0; y < tileHeight(); ++y) {
        unsigned left = 0;
        std::size_t byte = 0;
        for (std::size_t x = 0; x < tileWidth(); ++x, ++at) {
            if (left == 0 && bits > 0) {
                byte = reader.byte();
                left = 8;
            }
            left -= bits;
            const auto index = byte >> left & ((1U << bits) - 1);
            if (index >= colours)
                return Tile::Nonsense;
            set(at, palette_[index]);
        }
        if (reader.isCut)
            return Tile::Cut;
    }
    return Tile::Whole;
}

Zrle::Tile Zrle::runs(Reader& reader, std::size_t colours) {
    if (!readPalette(reader, colours))
        return Tile::Cut;
    const auto pixels = tileWidth() * tileHeight();
    for (std::size_t at = 0; at < pixels;) {
        bool isRun = true;
        Colours colour{};
        if (colours == 0) {
            colour = reader.colour();
        } else {
            const auto index = reader.byte();
            isRun = (index & 128U) != 0;
            if ((index & 127U) >= colours)
                return Tile::Nonsense;
            colour = palette_[index & 127U];
        }
        std::size_t length = 1;
        for (std::size_t more = isRun ? 255 : 0; more == 255 && length <= pixels;) {
            more = reader.byte();
            length += more;
        }
        if (reader.isCut)
            return Tile::Cut;
        if (length > pixels - at)
            return Tile::Nonsense;
        for (; length > 0; --length, ++at)
            set(at, colour);
    }
    return Tile::Whole;
}

bool Zrle::readPalette(Reader& reader, std::size_t colours) {
    for (std::size_t i = 0; i < colours; ++i)
        palette_[i] = reader.colour();
    return !reader.isCut;
}

void Zrle::set(std::size_t at, const Colours& colour) {
    const auto x = left_ + at % tileWidth();
    const auto y = at / tileWidth();
    std::copy(colour.begin(), colour.end(), row_.begin() + pixelSize * (y * width_ + x));
}

}  // namespace zelvo::opener
