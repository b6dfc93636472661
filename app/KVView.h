#pragma once

#include <QWidget>
#include <optional>

#include "platform/Window.h"

namespace zelvo {

/// The window's content area, with a background that tints what lies below.
class KVView final : public QWidget, public platform::BackgroundView {
  public:
    using QWidget::QWidget;

    void setBackgroundColor(const platform::Color& color) override;
    const std::optional<platform::Color>& backgroundColor() const { return backgroundColor_; }

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    std::optional<platform::Color> backgroundColor_;
};

}  // namespace zelvo
