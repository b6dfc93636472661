#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace zelvo::server {

struct Size {
    int width = 0;
    int height = 0;

    friend bool operator==(const Size&, const Size&) = default;
};

/// In pixels from the upper left corner.
struct Rectangle {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

struct Point {
    int x = 0;
    int y = 0;

    friend bool operator==(const Point&, const Point&) = default;
};

/// The pointer's picture. Pixels are 0xAARRGGBB with the colours multiplied by alpha, row by row.
struct Cursor {
    Size size;
    Point hotSpot;
    std::vector<std::uint32_t> pixels;
};

/// What a desktop lets viewers do, as long as it is shown.
struct Abilities {
    /// Else `pointer` and `key` do nothing.
    bool takesInput = true;
    /// Whether it would take input, if its user had let it.
    bool offersInput = true;
    /// Else nothing is told of the clipboard, and `setClipboard` does nothing.
    bool hasClipboard = true;
};

enum class ScreenEnd {
    Gone,
    /// The desktop does not show itself any more, as where its user said so there.
    Withdrawn,
};

/// What a screen tells of itself, from within `dispatch` or `capture`.
class ScreenObserver {
  public:
    virtual ~ScreenObserver() = default;

    /// Something looks different now: a capture is worth while.
    virtual void screenChanged() = 0;
    virtual void cursorChanged(const Cursor& cursor) = 0;
    virtual void cursorMoved(Point position) = 0;
    /// UTF-8 that a program of the desktop copied.
    virtual void clipboardChanged(const std::string& text) = 0;
    /// Nothing follows.
    virtual void screenEnded(ScreenEnd end) = 0;
};

/// A desktop as viewers see and use it. Everything on one thread, on which nothing blocks for
/// longer than a capture takes.
class Screen {
  public:
    virtual ~Screen() = default;

    virtual Abilities abilities() const { return {}; }

    /// Readable when `dispatch` has something to do; after a key or a pointer's movement it may
    /// have without that.
    virtual int descriptor() const = 0;
    virtual void dispatch(ScreenObserver& observer) = 0;

    /// Nobody watches at first, and a screen that nobody watches costs nothing: it tells nothing of
    /// changes, and need not be captured.
    virtual void setWatched(bool isWatched) = 0;

    /// Brings the picture up to date; tells what of it has changed. All of it, where the size has.
    virtual std::vector<Rectangle> capture(ScreenObserver& observer) = 0;
    /// As of the last capture while somebody watches; before it, a black one.
    virtual Size size() const = 0;
    /// 0x00RRGGBB in the machine's byte order, row by row without gaps. Stays in its place until
    /// a capture of which all has changed. The cursor is not in it, save on desktops that do not
    /// tell of it: there it is, and what is told is one that cannot be seen.
    virtual std::span<std::uint32_t> pixels() = 0;

    /// Buttons as RFC 6143, section 7.5.5 has them: bit 0 the left one, bits 3 to 6 the wheel.
    virtual void pointer(Point position, std::uint8_t buttons) = 0;
    /// An X keysym; arrives as what it stands for, whatever the layout of this computer is.
    virtual void key(std::uint32_t keysym, bool isDown) = 0;
    /// UTF-8, for the programs of the desktop to paste.
    virtual void setClipboard(const std::string& text) = 0;
};

}  // namespace zelvo::server
