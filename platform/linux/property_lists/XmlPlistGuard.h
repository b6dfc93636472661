#pragma once

#include <string>
#include <string_view>

namespace zelvo::platform {

/// Why the text, which is UTF-8, is not a well-formed XML property list with containers nested at
/// most `nestingLimit` deep; empty when it is one. libplist is lenient and recurses, so that it is
/// given only what has passed here.
std::string refuseXmlPlist(std::string_view text, int nestingLimit);

}  // namespace zelvo::platform
