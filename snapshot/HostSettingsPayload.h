#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace zelvo::platform {
class Bundle;
class ProcessInfo;
class PropertyListReader;
}  // namespace zelvo::platform

namespace zelvo {

/// The host's settings for a viewer as compact JSON, from the preference files as they are now:
/// each forwarded hot key under its number, its key as a keysym; "originalKeys", the same keys
/// before translation and in the same order; "osVersion"; "hotCorners". `translateKeyCode` turns a
/// virtual key code into a keysym. A hot corner whose action JSON cannot express is left out, so
/// that there always is a payload.
std::string hostSettingsPayload(
    const platform::PropertyListReader& reader, const platform::Bundle& bundle,
    const platform::ProcessInfo& processInfo,
    const std::function<std::int32_t(std::int32_t keyCode)>& translateKeyCode);

}  // namespace zelvo
