#pragma once

#include <string>

namespace zelvo::platform {

/// What the terminal's texts are written in, by its user's environment (LC_ALL, LC_CTYPE, LANG).
/// The locale that the toolkit sets is always one of UTF-8. Value type.
class Encoding {
  public:
    Encoding();

    bool isUtf8() const { return isUtf8_; }
    /// Of UTF-8; what the terminal cannot show becomes something like it, or "?".
    std::string encoded(const std::string& text) const;
    /// As UTF-8.
    std::string decoded(const std::string& text) const;
    /// The text as it is once shown, in UTF-8.
    std::string showable(const std::string& text) const {
        return isUtf8_ ? text : decoded(encoded(text));
    }

  private:
    std::string name_;
    bool isUtf8_;
};

}  // namespace zelvo::platform
