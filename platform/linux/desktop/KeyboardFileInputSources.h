#pragma once

#include <string>

#include "platform/TextInputSources.h"

namespace zelvo::platform {

/// The keyboard layout of keyboard(5): XKBLAYOUT and XKBVARIANT, of each the first one, as "us" or
/// "de+nodeadkeys".
class KeyboardFileInputSources : public TextInputSources {
  public:
    explicit KeyboardFileInputSources(std::string file = "/etc/default/keyboard");

    std::optional<std::string> currentKeyboardInputSourceId() const override;

  private:
    const std::string file_;
};

}  // namespace zelvo::platform
