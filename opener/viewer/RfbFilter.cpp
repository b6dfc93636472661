#include "opener/viewer/RfbFilter.h"

#include <algorithm>
#include <utility>

#include "opener/viewer/Jpeg.h"
#include "opener/viewer/RfbNumbers.h"

namespace zelvo::opener {

namespace {

/// Tight: streams whose content is not compressed, which the library knows.
constexpr std::uint8_t withoutZlib = 0xA0;
constexpr std::uint8_t explicitFilter = 0x40;
/// Tight: content this short is never compressed.
constexpr std::size_t shortest = 12;
/// Of the gradient filter, in the library.
constexpr std::uint32_t widestGradient = 2048;

std::uint32_t numberAt(std::string_view bytes, std::size_t at, std::size_t size) {
    std::uint32_t value = 0;
    for (auto byte : bytes.substr(at, size))
        value = value << 8U | static_cast<std::uint8_t>(byte);
    return value;
}

bool isPossible(std::uint32_t width, std::uint32_t height) {
    return width > 0 && height > 0 && width <= RfbFilter::longestSide &&
           height <= RfbFilter::longestSide &&
           std::uint64_t{width} * height <= RfbFilter::mostPixels;
}

PictureSize sizeOf(std::uint32_t width, std::uint32_t height) {
    return {static_cast<int>(width), static_cast<int>(height)};
}

}  // namespace

bool RfbFilter::receive(std::string_view bytes, std::string& to) {
    to_ = &to;
    rest_ += bytes;
    bytes = rest_;
    while (!isBroken_ && to.size() < enough && advance(bytes)) {
    }
    rest_.erase(0, rest_.size() - bytes.size());
    return !isBroken_;
}

/// False where more bytes are needed.
bool RfbFilter::advance(std::string_view& bytes) {
    if (zrle_.left > 0 || zrle_.tiles.hasMore())
        return unpack(bytes);
    if (passing_ > 0 || skipping_ > 0) {
        auto& left = passing_ > 0 ? passing_ : skipping_;
        const auto part = bytes.substr(0, left);
        if (passing_ > 0)
            handOn(part);
        left -= part.size();
        bytes.remove_prefix(part.size());
        return left == 0;
    }
    const auto missing = std::min(wanted_ - piece_.size(), bytes.size());
    piece_.append(bytes.substr(0, missing));
    bytes.remove_prefix(missing);
    if (piece_.size() < wanted_)
        return false;
    const auto piece = std::exchange(piece_, {});
    isBroken_ = !(this->*step_)(piece);
    return true;
}

bool RfbFilter::next(Step step, std::size_t size) {
    step_ = step;
    wanted_ = size;
    return true;
}

// The handshake.

bool RfbFilter::version(std::string_view piece) {
    if (piece != "RFB 003.008\n")
        return false;
    words_.reply(piece);
    return next(&RfbFilter::securityCount, 1);
}

bool RfbFilter::securityCount(std::string_view piece) {
    const auto count = numberAt(piece, 0, 1);
    return count > 0 && next(&RfbFilter::securityTypes, count);
}

bool RfbFilter::securityTypes(std::string_view piece) {
    // None: who is let in has been settled before.
    if (piece.find('\1') == std::string_view::npos)
        return false;
    words_.reply("\1");
    return next(&RfbFilter::securityResult, 4);
}

bool RfbFilter::securityResult(std::string_view piece) {
    if (numberAt(piece, 0, 4) != 0)
        return false;
    // Others may be inside, too.
    words_.reply("\1");
    return next(&RfbFilter::serverInit, 24);
}

bool RfbFilter::serverInit(std::string_view piece) {
    const auto width = numberAt(piece, 0, 2);
    const auto height = numberAt(piece, 2, 2);
    const auto name = numberAt(piece, 20, 4);
    if (!isPossible(width, height) || name > longestName)
        return false;
    size_ = sizeOf(width, height);
    skipping_ = name;
    words_.opened(size_);
    return nextMessage();
}

// Messages.

bool RfbFilter::message(std::string_view piece) {
    switch (numberAt(piece, 0, 1)) {
        case 0:
            return next(&RfbFilter::updateHead, 3);
        case 2:  // Bell
            return nextMessage();
        case 3:
            return next(&RfbFilter::cutTextHead, 7);
        default:
            return false;
    }
}

bool RfbFilter::cutTextHead(std::string_view piece) {
    const auto number = numberAt(piece, 3, 4);
    // A negative length says that it is of the extended form.
    const bool isExtended = (number & 0x80000000U) != 0;
    const std::size_t length = isExtended ? 0U - number : number;
    if (length > mostText)
        return false;
    if (length > longestText) {
        skipping_ = length;
        return nextMessage();
    }
    return next(isExtended ? &RfbFilter::extendedCutText : &RfbFilter::cutText, length);
}

bool RfbFilter::cutText(std::string_view piece) {
    words_.clipboard(std::string(piece));
    return nextMessage();
}

bool RfbFilter::extendedCutText(std::string_view piece) {
    words_.extendedClipboard(std::string(piece));
    return nextMessage();
}

// Updates.

bool RfbFilter::updateHead(std::string_view piece) {
    rectanglesLeft_ = numberAt(piece, 1, 2);
    words_.updateBegins();
    handOn({"\0", 1});
    handOn(piece);
    return nextRectangle();
}

bool RfbFilter::nextRectangle() {
    if (rectanglesLeft_ == 0)
        return nextMessage();
    --rectanglesLeft_;
    return next(&RfbFilter::rectangle, 12);
}

bool RfbFilter::rectangle(std::string_view piece) {
    rectangle_ = {numberAt(piece, 0, 2), numberAt(piece, 2, 2), numberAt(piece, 4, 2),
                  numberAt(piece, 6, 2)};
    const auto encoding = numberAt(piece, 8, 4);
    if (encoding == rfb::extendedDesktopSize)
        return next(&RfbFilter::desktopScreens, 4);
    if (encoding == rfb::desktopSize)
        return newSize();
    if (encoding == rfb::richCursor || encoding == rfb::pointerPosition) {
        // The library, which counts them, learns that there is nothing to see.
        handOn(rfb::number(0, 8) + rfb::number(rfb::richCursor, 4));
        if (encoding == rfb::richCursor)
            return cursorHead();
        words_.pointer({static_cast<int>(rectangle_.x), static_cast<int>(rectangle_.y)});
        return nextRectangle();
    }
    handOn(encoding == rfb::zrle ? std::string(piece.substr(0, 8)) + rfb::number(rfb::raw, 4)
                                 : std::string(piece));
    return encoding == rfb::lastRectangle ? nextMessage() : pictureRectangle(encoding);
}

bool RfbFilter::pictureRectangle(std::uint32_t encoding) {
    const auto& [x, y, width, height] = rectangle_;
    // In an empty one the library takes what size a JPEG says.
    if (width == 0 || height == 0 || x + width > static_cast<std::uint32_t>(size_.width) ||
        y + height > static_cast<std::uint32_t>(size_.height))
        return false;
    switch (encoding) {
        case rfb::raw:
            passing_ = std::size_t{4} * width * height;
            return nextRectangle();
        case rfb::copyRectangle:
            return next(&RfbFilter::copyRectangle, 4);
        case rfb::tight:
            return next(&RfbFilter::tightControl, 1);
        case rfb::zrle:
            return next(&RfbFilter::zrleLength, 4);
        default:
            return false;
    }
}

bool RfbFilter::copyRectangle(std::string_view piece) {
    if (numberAt(piece, 0, 2) + rectangle_.width > static_cast<std::uint32_t>(size_.width) ||
        numberAt(piece, 2, 2) + rectangle_.height > static_cast<std::uint32_t>(size_.height))
        return false;
    handOn(piece);
    return nextRectangle();
}

bool RfbFilter::cursorHead() {
    const auto& [x, y, width, height] = rectangle_;
    const bool isEmpty = width == 0 || height == 0;
    if (width > largestCursor || height > largestCursor)
        return false;
    const auto maskSize = std::size_t{(width + 7) / 8} * height;
    return next(&RfbFilter::cursor, isEmpty ? 0 : std::size_t{4} * width * height + maskSize);
}

bool RfbFilter::cursor(std::string_view piece) {
    const auto& [x, y, width, height] = rectangle_;
    std::vector<std::uint32_t> pixels(piece.empty() ? 0 : std::size_t{width} * height);
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        const auto byte = [&](std::size_t n) {
            return static_cast<std::uint8_t>(piece[4 * i + n]);
        };
        pixels[i] = byte(0) | byte(1) << 8U | byte(2) << 16U;
    }
    words_.cursor(pixels.empty() ? PictureSize{} : sizeOf(width, height),
                  // Some have theirs right below.
                  {static_cast<int>(std::min(x, std::max(width, 1U) - 1)),
                   static_cast<int>(std::min(y, std::max(height, 1U) - 1))},
                  pixels, piece.substr(4 * pixels.size()));
    return nextRectangle();
}

bool RfbFilter::desktopScreens(std::string_view piece) {
    skipping_ = std::size_t{16} * numberAt(piece, 0, 1);
    // The place tells who has asked for the size, and what has kept it from being so.
    const bool isRefused = rectangle_.x == 1 && rectangle_.y != 0;
    if (isRefused) {
        rectangle_.width = static_cast<std::uint32_t>(size_.width);
        rectangle_.height = static_cast<std::uint32_t>(size_.height);
    }
    return newSize();
}

bool RfbFilter::newSize() {
    const auto [x, y, width, height] = rectangle_;
    if (!isPossible(width, height))
        return false;
    // The one form that the library takes at its word.
    handOn(rfb::number(0, 4) + rfb::number(width, 2) + rfb::number(height, 2) +
           rfb::number(rfb::desktopSize, 4));
    // Hosts say it once more whenever they are told encodings.
    if (std::exchange(size_, sizeOf(width, height)) != sizeOf(width, height))
        words_.sizeChanges(size_);
    return nextRectangle();
}

// Tight, as the registry of RFB's encodings has it.

bool RfbFilter::tightControl(std::string_view piece) {
    const auto control = numberAt(piece, 0, 1);
    for (std::size_t i = 0; i < tight_.inflaters.size(); ++i) {
        if ((control >> i & 1U) != 0)
            tight_.inflaters[i].reset();
    }
    const auto kind = control >> 4U;
    tight_.isJpeg = kind == 9;
    if (kind == 8)
        return next(&RfbFilter::tightFill, 3);
    if (kind > 7 && !tight_.isJpeg)
        return false;
    if (tight_.isJpeg) {
        const auto [x, y, width, height] = rectangle_;
        words_.inexact({static_cast<int>(x), static_cast<int>(y), static_cast<int>(width),
                        static_cast<int>(height)});
        handOn(rfb::number(withoutZlib, 1));
        return tightBody(24);
    }
    tight_.stream = kind & 3U;
    const bool hasFilter = (kind & 4U) != 0;
    handOn(rfb::number(withoutZlib | (hasFilter ? explicitFilter : 0), 1));
    return hasFilter ? next(&RfbFilter::tightFilter, 1) : tightBody(24);
}

bool RfbFilter::tightFill(std::string_view piece) {
    handOn("\x80");
    handOn(piece);
    return nextRectangle();
}

bool RfbFilter::tightFilter(std::string_view piece) {
    handOn(piece);
    switch (numberAt(piece, 0, 1)) {
        case 0:
            return tightBody(24);
        case 1:
            return next(&RfbFilter::tightPaletteSize, 1);
        case 2:
            return rectangle_.width <= widestGradient && tightBody(24);
        default:
            return false;
    }
}

bool RfbFilter::tightPaletteSize(std::string_view piece) {
    const auto colours = numberAt(piece, 0, 1) + 1;
    handOn(piece);
    return colours >= 2 && next(&RfbFilter::tightPalette, std::size_t{3} * colours);
}

bool RfbFilter::tightPalette(std::string_view piece) {
    handOn(piece);
    return tightBody(piece.size() == 6 ? 1 : 8);
}

bool RfbFilter::tightBody(std::size_t bitsPerPixel) {
    tight_.size = (rectangle_.width * bitsPerPixel + 7) / 8 * rectangle_.height;
    if (tight_.size > largestTight)
        return false;
    if (tight_.size < shortest && !tight_.isJpeg)
        return next(&RfbFilter::tightPlain, tight_.size);
    tight_.length = tight_.lengthShift = 0;
    return next(&RfbFilter::tightLength, 1);
}

bool RfbFilter::tightPlain(std::string_view piece) {
    handOn(piece);
    return nextRectangle();
}

bool RfbFilter::tightLength(std::string_view piece) {
    const auto byte = numberAt(piece, 0, 1);
    const bool isLast = tight_.lengthShift == 14 || (byte & 0x80U) == 0;
    tight_.length |= std::size_t{tight_.lengthShift == 14 ? byte : byte & 0x7FU}
                     << tight_.lengthShift;
    tight_.lengthShift += 7;
    if (!isLast)
        return next(&RfbFilter::tightLength, 1);
    return tight_.length > 0 && next(&RfbFilter::tightData, tight_.length);
}

bool RfbFilter::tightData(std::string_view piece) {
    const auto content = tight_.isJpeg
                             ? decodeJpeg(piece, rectangle_.width, rectangle_.height)
                             : tight_.inflaters[tight_.stream].inflate(piece, tight_.size);
    if (!content || content->size() != tight_.size)
        return false;
    if (tight_.size < shortest) {
        handOn(*content);
        return nextRectangle();
    }
    handOn(rfb::number(0x80U | (tight_.size & 0x7FU), 1) +
           rfb::number(0x80U | (tight_.size >> 7U & 0x7FU), 1) +
           rfb::number(tight_.size >> 14U, 1));
    handOn(*content);
    return nextRectangle();
}

bool RfbFilter::zrleLength(std::string_view piece) {
    zrle_.left = numberAt(piece, 0, 4);
    zrle_.tiles.begin(rectangle_.width, rectangle_.height);
    return next(&RfbFilter::zrleEnd, 0);
}

bool RfbFilter::unpack(std::string_view& bytes) {
    if (bytes.empty() && !zrle_.tiles.hasMore())
        return false;
    auto part = bytes.substr(0, zrle_.left);
    const auto size = part.size();
    isBroken_ = !zrle_.tiles.receive(part, *to_, enough);
    zrle_.left -= size - part.size();
    bytes.remove_prefix(size - part.size());
    return true;
}

bool RfbFilter::zrleEnd(std::string_view) {
    return zrle_.tiles.isWhole() && nextRectangle();
}

}  // namespace zelvo::opener
