#pragma once

#include <string_view>

namespace zelvo::platform {

/// Writes one line about an event to standard error where the environment variable ZELVO_DEBUG, a
/// list such as "nat,https", names the topic or "all"; otherwise does nothing. No line holds a
/// link, a password or what a reply says. For what happens now and then, not many times a second.
/// Any thread.
void debug(std::string_view topic, std::string_view event);

}  // namespace zelvo::platform
