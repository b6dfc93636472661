#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "opener/viewer/Inflater.h"
#include "opener/viewer/Zrle.h"

namespace zelvo::opener {

/// In the host's pixels.
struct PictureSize {
    int width = 0;
    int height = 0;

    friend bool operator==(const PictureSize&, const PictureSize&) = default;
};

/// In the host's pixels, inside its picture.
struct PicturePart {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

struct PicturePoint {
    int x = 0;
    int y = 0;
};

/// What a host says besides its picture.
class HostWords {
  public:
    virtual ~HostWords() = default;

    /// What the handshake answers.
    virtual void reply(std::string_view bytes) = 0;
    /// The handshake is over. Once, before anything else but replies.
    virtual void opened(PictureSize size) = 0;
    virtual void updateBegins() = 0;
    virtual void sizeChanges(PictureSize size) = 0;
    /// This part comes as a JPEG, which is not what the host's screen looks like exactly.
    virtual void inexact(PicturePart part) = 0;
    /// Pixels are 0x00RRGGBB and seen where the mask has a bit, the highest first; the mask's rows
    /// begin with a byte each. Nothing to see is a size of 0.
    virtual void cursor(PictureSize size, PicturePoint hotSpot,
                        const std::vector<std::uint32_t>& pixels, std::string_view mask) = 0;
    virtual void pointer(PicturePoint position) = 0;
    /// In Latin-1.
    virtual void clipboard(const std::string& text) = 0;
    /// A message of the extended clipboard: its flags, and what they say that follows.
    virtual void extendedClipboard(const std::string& message) = 0;
};

/// Reads what a host says in RFB (RFC 6143) before anything else does, and hands on what shows its
/// picture: updates whose rectangles lie inside it and are in the encodings that are asked for.
/// Tight's zlib streams and JPEGs and all of ZRLE end here: what goes on are pixels, exactly as
/// many as their rectangle has. LibVNCClient 0.9.14 as it was released draws what there is more of
/// below the picture, reads tiles beyond their end, and a damaged JPEG brings it down. Bytes in,
/// bytes out, cut anywhere.
class RfbFilter {
  public:
    static constexpr std::uint32_t longestSide = 16384;
    static constexpr std::uint64_t mostPixels = 64 * 1024 * 1024;  ///< 256 MB
    static constexpr std::uint32_t longestName = 4096;
    /// What is longer is not heard; a host that says more than `mostText` is not heard any more.
    static constexpr std::size_t longestText = 1024 * 1024;
    static constexpr std::size_t mostText = 64 * 1024 * 1024;
    static constexpr std::uint32_t largestCursor = 512;
    /// Bytes that the library can take at once for a rectangle in Tight.
    static constexpr std::size_t largestTight = 640 * 480;
    /// Bytes that are handed on at a time; the rest of a row of tiles may come on top.
    static constexpr std::size_t enough = 1024 * 1024;

    explicit RfbFilter(HostWords& words) : words_(words) {}

    /// Appends to `to` what may be shown. False for good where the host says what none says. Few
    /// bytes may hold a large picture: once there is `enough`, what is left waits for another call.
    bool receive(std::string_view bytes, std::string& to);
    /// Whether another call finds something, also without bytes.
    bool hasMore() const { return !rest_.empty() || zrle_.tiles.hasMore(); }

    /// Whether the host owes the rest of something.
    bool isInside() const { return step_ != &RfbFilter::message || passing_ + skipping_ > 0; }

  private:
    /// Takes the bytes that were waited for, and says what comes next; false where that is nothing.
    using Step = bool (RfbFilter::*)(std::string_view piece);

    bool next(Step step, std::size_t size);
    bool advance(std::string_view& bytes);
    bool unpack(std::string_view& bytes);
    bool nextMessage() { return next(&RfbFilter::message, 1); }
    bool nextRectangle();
    void handOn(std::string_view bytes) { to_->append(bytes); }

    bool version(std::string_view piece);
    bool securityCount(std::string_view piece);
    bool securityTypes(std::string_view piece);
    bool securityResult(std::string_view piece);
    bool serverInit(std::string_view piece);

    bool message(std::string_view piece);
    bool cutTextHead(std::string_view piece);
    bool cutText(std::string_view piece);
    bool extendedCutText(std::string_view piece);
    bool updateHead(std::string_view piece);
    bool rectangle(std::string_view piece);
    bool pictureRectangle(std::uint32_t encoding);
    bool copyRectangle(std::string_view piece);
    bool cursorHead();
    bool cursor(std::string_view piece);
    bool desktopScreens(std::string_view piece);
    bool newSize();

    bool tightControl(std::string_view piece);
    bool tightFilter(std::string_view piece);
    bool tightPaletteSize(std::string_view piece);
    bool tightPalette(std::string_view piece);
    bool tightFill(std::string_view piece);
    bool tightBody(std::size_t bitsPerPixel);
    bool tightPlain(std::string_view piece);
    bool tightLength(std::string_view piece);
    bool tightData(std::string_view piece);

    bool zrleLength(std::string_view piece);
    bool zrleEnd(std::string_view piece);

    HostWords& words_;
    std::string* to_ = nullptr;
    Step step_ = &RfbFilter::version;
    std::size_t wanted_ = 12;
    std::string piece_;
    /// Before the next step, unseen, to the picture or nowhere.
    std::size_t passing_ = 0;
    std::size_t skipping_ = 0;
    std::string rest_;
    bool isBroken_ = false;

    PictureSize size_;
    std::uint32_t rectanglesLeft_ = 0;
    struct {
        std::uint32_t x = 0, y = 0, width = 0, height = 0;
    } rectangle_;
    struct {
        std::array<Inflater, 4> inflaters;
        std::size_t stream = 0;
        bool isJpeg = false;
        /// Of the rectangle's content.
        std::size_t size = 0;
        std::size_t length = 0;
        unsigned lengthShift = 0;
    } tight_;
    struct {
        Zrle tiles;
        std::size_t left = 0;
    } zrle_;
};

}  // namespace zelvo::opener
