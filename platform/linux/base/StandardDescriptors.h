#pragma once

namespace zelvo::platform {

/// Opens /dev/null in place of a standard descriptor that the process was started without. The next
/// file to be opened would take its number, and get what is printed. Before anything is opened.
void occupyStandardDescriptors();

}  // namespace zelvo::platform
