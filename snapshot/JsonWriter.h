#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/PropertyList.h"

namespace zelvo {

/// Whether the value can be written as JSON (RFC 8259): all kinds but dates, data and numbers that
/// are not finite, and containers that hold none of these.
bool isJsonRepresentable(const platform::PropertyList& value);

/// Writes compact UTF-8 JSON (RFC 8259), member by member in the order of the calls. Ill-formed
/// UTF-8 in a string becomes U+FFFD, so that the text is always valid.
class JsonWriter {
  public:
    void beginObject() { begin('{'); }
    void endObject() { end('}'); }
    void beginArray() { begin('['); }
    void endArray() { end(']'); }
    /// Names the member whose value comes next.
    void key(std::string_view name);

    void string(std::string_view text);
    void integer(std::int64_t number);
    void boolean(bool flag);
    /// Must be finite.
    void real(double number);
    /// Must be representable.
    void propertyList(const platform::PropertyList& value);

    /// What has been written.
    const std::string& text() const { return text_; }

  private:
    void begin(char bracket);
    void end(char bracket);
    void beginValue();
    void quoted(std::string_view text);

    std::string text_;
    /// Whether a value or member stands before the next one in its container.
    bool needsComma_ = false;
};

}  // namespace zelvo
