#pragma once

#include <QPushButton>
#include <functional>

#include "platform/Window.h"

namespace zelvo::platform {

/// The window's main button. It sends its action on the mouse event asked for, and always on the
/// keyboard.
class ShareButton final : public QPushButton, public Button {
  public:
    explicit ShareButton(QWidget* parent = nullptr);

    void setAction(std::function<void()> action) { action_ = std::move(action); }
    void sendActionOn(EventMask mask) override { mask_ = mask; }
    Rect bounds() const override;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

  protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

  private:
    void sendAction();

    EventMask mask_ = EventMask::LeftMouseUp;
    std::function<void()> action_;
};

}  // namespace zelvo::platform
