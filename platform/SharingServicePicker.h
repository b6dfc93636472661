#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/Window.h"

namespace zelvo::platform {

/// One entry of the sharing menu.
struct SharingService {
    std::string title;
    std::string image;
    std::string alternateImage;
    std::function<void()> handler;
};

/// Says which services the menu offers, given the items and what the system proposes.
class SharingServicePickerDelegate {
  public:
    virtual ~SharingServicePickerDelegate() = default;
    virtual std::vector<SharingService> sharingServicesForItems(
        const std::vector<std::string>& items, std::vector<SharingService> proposedServices) = 0;
};

/// The system's sharing menu. Main thread only.
class SharingServicePicker {
  public:
    virtual ~SharingServicePicker() = default;
    /// Shows the menu for the items at `edge` of `rect` in `view` (null: at the window) and returns
    /// at once. The delegate outlives the menu.
    virtual void show(const std::vector<std::string>& items, SharingServicePickerDelegate& delegate,
                      const Rect& rect, Button* view, RectEdge edge) = 0;
};

}  // namespace zelvo::platform
