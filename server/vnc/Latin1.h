#pragma once

#include <string>

namespace zelvo::server {

/// The text as RFB's clipboard has it (RFC 6143, section 7.6.4), with question marks for what that
/// lacks.
std::string latin1(const std::string& utf8);
std::string utf8(const std::string& latin1Text);

}  // namespace zelvo::server
