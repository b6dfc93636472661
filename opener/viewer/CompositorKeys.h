#pragma once

#include <memory>

class QWidget;

namespace zelvo::opener {

/// The keys that a Wayland compositor keeps for itself, such as Super: held for a window by
/// keyboard-shortcuts-inhibit (unstable version 1). X11 has its grab of the keyboard instead. For
/// the main thread.
class CompositorKeys {
  public:
    CompositorKeys();
    CompositorKeys(const CompositorKeys&) = delete;
    CompositorKeys& operator=(const CompositorKeys&) = delete;
    ~CompositorKeys();

    /// From now on they come to the widget's window, which is shown, while it has the focus.
    /// Without effect outside of Wayland, where the compositor has no part for it, and where it or
    /// its user says no.
    void hold(const QWidget& widget);
    void letGo();

  private:
    struct Compositor;
    class Inhibitor;
    std::unique_ptr<Compositor> compositor_;
    std::unique_ptr<Inhibitor> inhibitor_;
};

}  // namespace zelvo::opener
