#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

namespace zelvo::platform {
class HardwareRegistry;
}

namespace zelvo {

/// The hardware address of "en0": that of the last matching service whose controller could be
/// reached, none when there was no such service or its controller has no address. What goes wrong
/// on the way is told to `diagnostic`, one text each, ending in a newline.
std::optional<std::vector<std::byte>> primaryInterfaceAddress(
    const platform::HardwareRegistry& hardware,
    const std::function<void(std::string_view)>& diagnostic);

}  // namespace zelvo
