#pragma once

#include <string>
#include <string_view>

namespace zelvo::platform {

/// Puts a file, for the user alone, in the place of what was there: whoever reads sees the old
/// content or the new, also after a power cut. Makes the folders of the path, for the user alone as
/// the XDG standard asks. What went wrong, beginning with "cannot"; empty when it is done. Any
/// thread.
std::string replaceFile(const std::string& path, std::string_view content);

/// Writes over a file of the user's where it lies, which needs no space where the content is no
/// longer than the file; a power cut may leave half of it. False where there is none, where the
/// content is longer, and where it fails. Any thread.
bool overwriteFile(const std::string& path, std::string_view content);

}  // namespace zelvo::platform
