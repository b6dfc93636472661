#pragma once

#include <functional>

#include "platform/Pasteboard.h"

namespace zelvo::platform {

/// The desktop's clipboard. Needs a QGuiApplication.
class QtPasteboard final : public Pasteboard {
  public:
    /// `copied` is called whenever something has been put there.
    explicit QtPasteboard(std::function<void()> copied) : copied_(std::move(copied)) {}

    void clearContents() override;
    void writeObjects(const std::vector<PasteboardObject>& objects) override;

  private:
    std::function<void()> copied_;
    std::vector<PasteboardObject> objects_;
};

}  // namespace zelvo::platform
