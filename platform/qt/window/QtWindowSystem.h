#pragma once

#include "platform/Window.h"

namespace zelvo::platform {

/// Measures of the application's style. Needs a QApplication.
class QtWindowSystem final : public WindowSystem {
  public:
    Rect contentRectForFrameRect(const Rect& frame, WindowStyle style) const override;
};

}  // namespace zelvo::platform
