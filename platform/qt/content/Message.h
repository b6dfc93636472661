#pragma once

#include <string>
#include <vector>

namespace zelvo::platform {

class Bundle;
class WayIn;

/// The share items (a text, the link, a text), as one message that names the link's page, too.
std::string messageOf(const std::vector<std::string>& items, const WayIn& wayIn,
                      const Bundle& bundle);

}  // namespace zelvo::platform
