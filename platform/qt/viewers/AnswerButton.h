#pragma once

#include <QPushButton>

namespace zelvo::platform {

/// A large button that can look as if it did nothing, while it keeps its focus. It has no letter of
/// its own. Main thread only.
class AnswerButton final : public QPushButton {
  public:
    using QPushButton::QPushButton;

    void setResting(bool rests);
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

  protected:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

  private:
    bool rests_ = false;
};

}  // namespace zelvo::platform
