#pragma once

#include <string>

#include "service/Reply.h"

namespace zelvo::service {

/// Writes a reply as an XML property list (version 1.0, UTF-8). What XML 1.0 cannot carry is left
/// out: control characters but tab and line ends, U+FFFE, U+FFFF, and bytes that are not UTF-8.
class PropertyListWriter {
  public:
    static std::string write(const Reply& reply);
};

}  // namespace zelvo::service
