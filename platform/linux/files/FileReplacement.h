#pragma once

#include <string>
#include <string_view>

namespace zelvo::platform {

/// Puts a file, for the user alone, in the place of what was there: whoever reads sees the old
/// content or the new, also after a power cut. Makes the folders of the path, for the user alone as
/// the XDG standard asks. What went wrong, beginning with "cannot"; empty when it is done. Any
/// thread.
std::string replaceFile(const std::string& path, std::string_view content);

}  // namespace zelvo::platform
