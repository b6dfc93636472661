#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zelvo::sealing {

/// RFC 4648: section 4 with its padding, or section 5 (for links and file names) without any.
enum class Base64 { Padded, ForLinks };

std::string encodeBase64(std::string_view bytes, Base64 form);
/// The one text that encodes these bytes, or none: no other characters, no bits left over.
std::optional<std::string> decodeBase64(std::string_view text, Base64 form);

}  // namespace zelvo::sealing
