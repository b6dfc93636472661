#pragma once

#include "platform/Pasteboard.h"

namespace zelvo::platform {

/// The desktop's clipboard. Needs a QGuiApplication.
class QtPasteboard final : public Pasteboard {
  public:
    void clearContents() override;
    void writeObjects(const std::vector<PasteboardObject>& objects) override;

  private:
    std::vector<PasteboardObject> objects_;
};

}  // namespace zelvo::platform
