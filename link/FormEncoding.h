#pragma once

#include <string>
#include <string_view>

#include "platform/PropertyList.h"
#include "platform/UrlSession.h"

namespace zelvo {

/// Percent-escapes the UTF-8 bytes of all characters that RFC 2396 does not allow in a URL
/// (sections 2.2 to 2.4). Letters, digits, marks and the reserved characters ";/?:@&=+$," stay as
/// they are.
std::string percentEscaped(std::string_view text);

/// The text form of a value: a string as it is, a number in decimal, a boolean as 1 or 0, data in
/// angle brackets, arrays in "(...)" and dictionaries in "{...}" over several lines.
std::string description(const platform::PropertyList& value);

/// A POST of form fields ("name=value" joined by "&") to the URL, with 60 s time-out and past any
/// cache.
platform::UrlRequest formPost(std::string url, std::string_view fields);

/// Appends one field to the fields so far. The name goes as it stands, the value's text escaped.
void appendField(std::string& fields, std::string_view name, const platform::PropertyList& value);

}  // namespace zelvo
