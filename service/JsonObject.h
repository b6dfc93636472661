#pragma once

#include <string_view>

namespace zelvo::service {

/// Whether the text is one well-formed JSON object (RFC 8259), nested at most 64 deep. The text
/// must be UTF-8.
bool isJsonObject(std::string_view text);

}  // namespace zelvo::service
