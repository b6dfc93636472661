#pragma once

#include <QFrame>

namespace zelvo::platform {

/// A group of controls on a ground of its own with round corners.
class Panel final : public QFrame {
  public:
    using QFrame::QFrame;

  protected:
    void paintEvent(QPaintEvent* event) override;
};

}  // namespace zelvo::platform
