#pragma once

#include <string_view>

namespace zelvo::platform {

/// The system log. Any thread.
class Log {
  public:
    virtual ~Log() = default;

    /// Writes one diagnostic. Line ends inside the text do not start a second entry.
    virtual void line(std::string_view text) = 0;

    /// Writes the text to standard error as it stands.
    virtual void standardError(std::string_view text) = 0;
};

}  // namespace zelvo::platform
