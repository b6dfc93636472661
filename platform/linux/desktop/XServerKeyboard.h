#pragma once

#include <memory>
#include <optional>
#include <string>

struct xcb_connection_t;

namespace zelvo::platform {

/// The keyboard of the X server, whose connection lasts as long as this object. One thread.
class XServerKeyboard {
  public:
    /// `display` as in DISPLAY.
    explicit XServerKeyboard(const std::string& display);

    /// False also once the server has gone.
    bool isConnected() const;
    /// Is ready to be read when the server has something to tell, and when it has gone.
    int descriptor() const;
    /// Whether the layout may have changed since the last call.
    bool takeNotices();

    /// The current layout, from the rules property of the root window and the keyboard's group,
    /// such as "de+nodeadkeys". None when there is no such server or property.
    std::optional<std::string> inputSource() const;

  private:
    std::unique_ptr<xcb_connection_t, void (*)(xcb_connection_t*)> connection_;
    bool hasGroups_ = false;
};

}  // namespace zelvo::platform
