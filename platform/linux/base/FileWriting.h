#pragma once

#include <string>
#include <string_view>

namespace zelvo::platform {

/// Puts a file, for the user alone, in the place of what was there: whoever reads sees the old
/// content or the new, also after a power cut. Makes the last folder of the path. The error number;
/// 0 when it is done. Any thread.
int replaceFile(const std::string& path, std::string_view content);

}  // namespace zelvo::platform
