#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "opener/viewer/LineQuality.h"
#include "opener/viewer/RfbFilter.h"

/// What a viewer says to a host (RFC 6143, section 7.5), message by message.
namespace zelvo::opener::requests {

/// Pixels as Decoder wants them.
std::string pixelFormat();
std::string encodings(LineQuality::Level level);
std::string update(PicturePart part, bool onlyChanges);
std::string key(std::uint32_t keysym, bool isDown);
/// Buttons: bit 0 the left one, 1 the middle, 2 the right, 3 to 6 the wheel.
std::string pointer(int x, int y, std::uint8_t buttons);
bool isPointer(std::string_view message);

/// For hosts without the extended clipboard: what Latin-1 lacks becomes a question mark.
std::string latin1Clipboard(std::string_view utf8);
/// The extended clipboard: text alone, which the host may send by itself.
std::string clipboardAbilities();
std::string clipboardRequest();
std::string clipboardText(const std::string& utf8);

/// A message of the extended clipboard, as the host sent it.
struct ClipboardNews {
    bool tellsAbilities = false;
    bool hasText = false;  ///< which has to be asked for
    bool wantsText = false;
    std::optional<std::string> text;  ///< UTF-8
};
/// What is damaged or too large says nothing.
ClipboardNews clipboardNews(const std::string& message);

}  // namespace zelvo::opener::requests
