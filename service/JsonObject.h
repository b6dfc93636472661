#pragma once

#include <string_view>

namespace zelvo::service {

/// Whether the text is one well-formed JSON object (RFC 8259), nested at most 64 deep, each
/// string UTF-8. Takes memory for the depth and the longest string alone.
bool isJsonObject(std::string_view text);

}  // namespace zelvo::service
