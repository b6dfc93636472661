#pragma once

#include <string>
#include <vector>

namespace zelvo::platform {

/// The text without links, network addresses, and names that could serve as one.
std::string withoutAddresses(const std::string& text);

/// What a feedback says of the system: version, operating system, desktop and the log's last lines,
/// none of them with an address.
std::string describeSystem(const std::string& version, const std::vector<std::string>& logLines);

}  // namespace zelvo::platform
