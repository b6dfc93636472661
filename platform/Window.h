#pragma once

namespace zelvo::platform {

/// A colour in calibrated RGB, each component from 0 to 1.
struct Color {
    double red = 0;
    double green = 0;
    double blue = 0;
    double alpha = 1;
    friend bool operator==(const Color&, const Color&) = default;
};

/// In points; the origin is at the lower left.
struct Rect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;
    friend bool operator==(const Rect&, const Rect&) = default;
};

enum class EventMask { LeftMouseDown, LeftMouseUp };
enum class RectEdge { MinX, MinY, MaxX, MaxY };
enum class WindowStyle { Borderless, Titled };

/// A button of the main window. Main thread only.
class Button {
  public:
    virtual ~Button() = default;
    /// Which mouse event sends the button's action.
    virtual void sendActionOn(EventMask mask) = 0;
    virtual Rect bounds() const = 0;
};

/// A view that can tint its background. Main thread only.
class BackgroundView {
  public:
    virtual ~BackgroundView() = default;
    /// Stores the colour and marks the whole view for redrawing.
    virtual void setBackgroundColor(const Color& color) = 0;
};

/// The main window. Main thread only.
class Window {
  public:
    virtual ~Window() = default;
    /// Gives the button the keyboard focus.
    virtual void makeFirstResponder(Button& button) = 0;
};

/// Measures of the window system. Main thread only.
class WindowSystem {
  public:
    virtual ~WindowSystem() = default;
    /// The content rectangle of a window of the style in that frame.
    virtual Rect contentRectForFrameRect(const Rect& frame, WindowStyle style) const = 0;
};

}  // namespace zelvo::platform
