#pragma once

#include <optional>
#include <string>

namespace zelvo::platform {

/// The keyboard. Main thread only.
class TextInputSources {
  public:
    virtual ~TextInputSources() = default;
    /// Identifier of the current keyboard input source, such as "us" or "de+nodeadkeys".
    virtual std::optional<std::string> currentKeyboardInputSourceId() const = 0;
};

}  // namespace zelvo::platform
