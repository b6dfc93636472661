#pragma once

#include <optional>
#include <string>

#include "platform/PropertyList.h"

namespace zelvo::platform {

/// The link that a parsed reply of the sharing service says is registered, judged as the core
/// does; none where it says so of none.
std::optional<std::string> registeredLink(const std::optional<PropertyList>& reply);

}  // namespace zelvo::platform
